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
#include <unistd.h>

#include <fstream>
#include <iostream>
#include <string>

#include "DaemonBench.h"
#include "DaemonSandbox.h"
#include "ResultTable.h"

int main(int argc, char** argv) {
  std::string output;
  std::string command = "make bench";
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string option = argv[i];
    if (option == "--output") output = argv[i + 1];
    if (option == "--command") command = argv[i + 1];
  }
  if (geteuid() != 0) {
    std::cerr << "zorvik_bench: needs root (the daemon runs in its own namespaces)" << std::endl;
    return 2;
  }
  // A caller that vanished must not end the benchmark.
  signal(SIGPIPE, SIG_IGN);

  zorvik::DaemonSandbox sandbox(ZORVIK_BINARY, SANDBOX_SCRIPT);
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
