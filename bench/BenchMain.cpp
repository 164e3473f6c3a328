// zorvik_bench: measures the daemon side by side with its baselines in one run and prints the
// table (and writes it to --output): request throughput and latency against an empty server on
// the same Thrift stack, storing a scene against bare SQLite, start-up time and resident memory
// against the empty server, timer lateness against a condition-variable loop, idle wake-ups, and
// the stripped binary against the empty server's.
//
// The daemon runs unmodified in the end-to-end tests' sandbox (its own namespaces, /etc/zorvik,
// /tmp and 127.0.0.1), which scripts/bench.sh sets up and runs this program in the sandbox's
// network namespace; the empty server runs there too.
//
// Usage: zorvik_bench --sandbox FOLDER --log-socket PATH [--output FILE] [--command TEXT]
//                     [--only GROUP,...]
// (FOLDER: the sandbox's folder; PATH: its /dev/log as the host reaches it; GROUP: startup,
// requests, storing, mixed, idle, timers or size, to measure only those figures.)
#include <signal.h>

#include <fstream>
#include <iostream>
#include <set>
#include <sstream>
#include <string>

#include "DaemonBench.h"
#include "ResultTable.h"
#include "SandboxControl.h"

int main(int argc, char** argv) {
  std::string folder;
  std::string logSocket;
  std::string output;
  std::string command = "make bench";
  std::string only;
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string option = argv[i];
    if (option == "--sandbox") folder = argv[i + 1];
    if (option == "--log-socket") logSocket = argv[i + 1];
    if (option == "--output") output = argv[i + 1];
    if (option == "--command") command = argv[i + 1];
    if (option == "--only") only = argv[i + 1];
  }
  std::set<std::string> groups;
  std::istringstream onlyList(only);
  for (std::string group; std::getline(onlyList, group, ',');) {
    if (zorvik::DaemonBench::groups().count(group) == 0) {
      std::cerr << "zorvik_bench: unknown group " << group << std::endl;
      return 2;
    }
    groups.insert(group);
  }
  if (folder.empty() || logSocket.empty()) {
    std::cerr << "usage: zorvik_bench --sandbox FOLDER --log-socket PATH [--output FILE] "
                 "[--command TEXT] [--only GROUP,...] (run by scripts/bench.sh)"
              << std::endl;
    return 2;
  }
  // A caller that vanished must not end the benchmark.
  signal(SIGPIPE, SIG_IGN);

  const zorvik::SandboxControl sandbox(folder);
  zorvik::ResultTable table;
  zorvik::DaemonBench bench(sandbox, logSocket, table);
  bench.run(groups);
  zorvik::DaemonBench::addMethodNotes(table);
  if (bench.failures() != 0) {
    table.note(std::to_string(bench.failures()) + " calls failed during the run.");
  }
  std::cout << table.table();
  if (!output.empty()) std::ofstream(output) << table.report(command);
  return bench.failures() == 0 ? 0 : 1;
}
