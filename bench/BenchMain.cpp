// zorvik_bench: measures the daemon side by side with its baselines in one run and prints the
// table (and writes it to --output): request throughput and latency against an empty server on
// the same Thrift stack, storing a scene against bare SQLite, start-up time and resident memory
// against the empty server, timer lateness against a condition-variable loop, idle wake-ups, and
// the stripped binary against the empty server's.
//
// The daemon runs unmodified in the end-to-end tests' sandbox (its own namespaces, /etc/zorvik,
// /tmp and 127.0.0.1), so it needs root; the empty server runs in the same network namespace.
//
// Usage: zorvik_bench [--output FILE] [--command TEXT]
#include <signal.h>

#include <fstream>
#include <iostream>
#include <string>

#include "DaemonBench.h"
#include "ResultTable.h"
#include "Sandbox.h"

int main(int argc, char** argv) {
  std::string output;
  std::string command = "make bench";
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string option = argv[i];
    if (option == "--output") output = argv[i + 1];
    if (option == "--command") command = argv[i + 1];
  }
  const std::string unavailable = zorvik::Sandbox::unavailableReason();
  if (!unavailable.empty()) {
    std::cerr << "zorvik_bench: the daemon's sandbox cannot run here: " << unavailable << std::endl;
    return 2;
  }
  // A caller that vanished must not end the benchmark.
  signal(SIGPIPE, SIG_IGN);

  zorvik::Sandbox sandbox;
  std::string error;
  if (!sandbox.start(error)) {
    std::cerr << "zorvik_bench: " << error << std::endl;
    return 1;
  }
  zorvik::ResultTable table;
  zorvik::DaemonBench bench(sandbox, table);
  bench.run();
  zorvik::DaemonBench::addMethodNotes(table);
  if (bench.failures() != 0) {
    table.note(std::to_string(bench.failures()) + " calls failed during the run.");
  }
  std::cout << table.table();
  if (!output.empty()) std::ofstream(output) << table.report(command);
  return bench.failures() == 0 ? 0 : 1;
}
