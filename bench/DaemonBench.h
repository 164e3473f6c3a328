// DaemonBench: every benchmark figure of the daemon, each measured beside its baseline in the
// same run and added to a ResultTable: start-up time and resident memory against an empty
// server on the same Thrift stack, request throughput and latency against that server, storing
// a scene against bare SQLite, resident memory after a mixed load, idle wake-ups, timer lateness
// against a condition-variable loop, and the stripped binary against the empty server's.
//
// Ownership: borrows the sandbox and the table; owns the empty server process it starts.
// Threading: one thread runs it (the request loads start their own callers).
#ifndef ZORVIK_BENCH_DAEMONBENCH_H_
#define ZORVIK_BENCH_DAEMONBENCH_H_

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <string>

#include "DaemonSandbox.h"
#include "RequestLoad.h"
#include "ResultTable.h"

namespace zorvik {

class DaemonBench {
 public:
  DaemonBench(DaemonSandbox& sandbox, ResultTable& table);

  // Runs every measurement; the empty server is stopped at the end.
  void run();
  // Calls that failed, and servers that never answered.
  uint64_t failures() const { return failures_; }
  // Adds the notes that say how the figures were taken.
  static void addMethodNotes(ResultTable& table);

 private:
  using Clock = std::chrono::steady_clock;

  RequestLoad::Connector connectorTo(int port) const;
  // Milliseconds from `start` to the first answer on `port` (a failure when none comes).
  double millisecondsToFirstAnswer(Clock::time_point start, int port);
  void fillStore(int scenes) const;
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
  static double strippedKiB(const std::string& binary, const std::string& scratch);
  void measureBinarySize();

  DaemonSandbox& sandbox_;
  ResultTable& table_;
  pid_t daemon_ = -1;
  pid_t emptyServer_ = -1;
  uint64_t emptyIdleKiB_ = 0;
  uint64_t failures_ = 0;
};

}  // namespace zorvik

#endif  // ZORVIK_BENCH_DAEMONBENCH_H_
