// SandboxControl: the daemon's sandbox (tests/e2e/sandbox.sh, set up by scripts/bench.sh) as the
// benchmark sees it from inside the sandbox's network namespace: daemon instances started and
// killed through the sandbox's control FIFO, and its /etc/zorvik and system log read from the
// sandbox's folder on the host.
//
// Holds only the folder's path; one thread drives it.
#ifndef ZORVIK_BENCH_SANDBOXCONTROL_H_
#define ZORVIK_BENCH_SANDBOXCONTROL_H_

#include <string>

namespace zorvik {

class SandboxControl {
 public:
  explicit SandboxControl(std::string folder) : folder_(std::move(folder)) {}

  // Starts a daemon instance called `name`.
  void startDaemon(const std::string& name) const;
  // Kills the instance with SIGKILL and waits until it has ended.
  void stopDaemon(const std::string& name) const;
  // Host path of a file of the sandbox's /etc/zorvik.
  std::string dataFile(const std::string& name) const;
  // How many of the lines logged in the sandbox so far contain `needle`.
  int countLogLines(const std::string& needle) const;

 private:
  void control(const std::string& line) const;
  std::string statusFile(const std::string& name) const;

  const std::string folder_;
};

}  // namespace zorvik

#endif  // ZORVIK_BENCH_SANDBOXCONTROL_H_
