// DaemonBench: every benchmark figure of the daemon, each measured beside its baseline in the
// same run and added to a ResultTable: start-up time and memory (resident and private dirty)
// against an empty server on the same Thrift stack, request throughput and latency
// against that server, storing a scene against bare SQLite, resident memory after a mixed load,
// idle wake-ups, timer lateness against a condition-variable loop, and the stripped binary against
// the empty server's.
//
// Runs inside the sandbox's network namespace, where the daemon's 127.0.0.1 is its own.
// Ownership: borrows the sandbox and the table; owns the empty server process it starts and a
// scratch folder for the baselines' files.
// Threading: one thread runs it (the request loads start their own callers).
#ifndef ZORVIK_BENCH_DAEMONBENCH_H_
#define ZORVIK_BENCH_DAEMONBENCH_H_

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <set>
#include <string>

#include "DaemonProcess.h"
#include "RequestLoad.h"
#include "ResultTable.h"
#include "SandboxControl.h"

namespace zorvik {

class DaemonBench {
 public:
  // `logSocket` is the sandbox's /dev/log as the host reaches it.
  DaemonBench(const SandboxControl& sandbox, std::string logSocket, ResultTable& table);
  ~DaemonBench();
  DaemonBench(const DaemonBench&) = delete;
  DaemonBench& operator=(const DaemonBench&) = delete;

  // The names of the groups of figures run() can measure.
  static const std::set<std::string>& groups();
  // Runs the measurements of `only` (every group when empty); the empty server is stopped at the
  // end.
  void run(const std::set<std::string>& only = {});
  // Calls that failed, and servers that never answered.
  uint64_t failures() const { return failures_; }
  // Adds the notes that say how the figures were taken.
  static void addMethodNotes(ResultTable& table);

 private:
  using Clock = std::chrono::steady_clock;
  // A server's memory in MiB, as /proc tells it.
  struct Memory {
    double resident;
    double privateDirty;
  };
  // A pid no process has; a DaemonProcess of it reads as gone.
  static constexpr pid_t kNoProcess = -1;

  static RequestLoad::Connector connectorTo(int port);
  // Milliseconds from `start` to the first answer on `port` (a failure when none comes).
  double millisecondsToFirstAnswer(Clock::time_point start, int port);
  // The serving daemon seen from the host; when it cannot be found, a failure and a process that
  // reads as gone.
  DaemonProcess findDaemon();
  void fillStore(int scenes) const;
  static Memory memoryOf(const DaemonProcess& process);
  // The rows of the daemon's memory beside the empty server's; `when` ends the figure's name.
  void addMemoryRows(const std::string& when, const Memory& daemon, const Memory& empty);
  double startEmptyServer();
  void stopEmptyServer();
  void measureStartup();
  void startMainDaemon();
  // The daemon and the empty server in alternating rounds, so that a burst of other work on
  // the machine weighs on both alike.
  void compareLoad(const std::string& label, const std::string& request, int callers);
  void measureRequests();
  void measureStoring();
  void measureMixedLoad();
  void measureIdleWakeUps();
  void measureTimers();
  double strippedKiB(const std::string& binary) const;
  void measureBinarySize();

  const SandboxControl& sandbox_;
  const std::string logSocket_;
  ResultTable& table_;
  const std::string scratch_;         // bare SQLite's files and stripped copies
  DaemonProcess daemon_{kNoProcess};  // the instance that serves the request loads, once found
  pid_t emptyServer_ = kNoProcess;
  Memory emptyIdle_{};
  uint64_t failures_ = 0;
};

}  // namespace zorvik

#endif  // ZORVIK_BENCH_DAEMONBENCH_H_
