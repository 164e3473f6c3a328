// DaemonSandbox: the unmodified daemon on a private router, built by the end-to-end tests'
// sandbox script in fresh mount, network and pid namespaces: stub router programs, a private
// /etc/zorvik (a folder of the host that benchmarks fill before a start), /tmp with a trusted
// clock, and a /dev/log drained by a SyslogCounter. The host's own files, /etc/zorvik and port
// 9096 are never touched: the sandbox has its own 127.0.0.1.
//
// Ownership: owns its state folder (removed at the end) and the namespaces (unshare is killed
// with SIGKILL at the end, which ends every process inside). Programs started with
// spawnInNetwork() belong to the caller.
// Threading: one thread drives it; connect() may be called from any thread.
#ifndef ZORVIK_BENCH_DAEMONSANDBOX_H_
#define ZORVIK_BENCH_DAEMONSANDBOX_H_

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "SyslogCounter.h"

namespace zorvik {

class DaemonSandbox {
 public:
  DaemonSandbox(std::string daemonBinary, std::string sandboxScript);
  ~DaemonSandbox();
  DaemonSandbox(const DaemonSandbox&) = delete;
  DaemonSandbox& operator=(const DaemonSandbox&) = delete;

  // Builds the sandbox; false with a reason in `error` when it did not come up.
  bool start(std::string& error);

  // The host folder that the daemon sees as /etc/zorvik.
  std::string dataFolder() const { return state_ + "/etc-zorvik"; }
  // A folder of the host on the same file system as dataFolder(), for baselines.
  std::string scratchFolder() const { return state_ + "/scratch"; }

  // Starts a daemon instance called `name` and returns its host pid (-1 if it did not appear).
  pid_t startDaemon(const std::string& name);
  // Kills the instance with SIGKILL and waits until it is gone.
  void stopDaemon(const std::string& name);

  // A TCP connection to 127.0.0.1:port inside the sandbox's network; -1 if none.
  int connect(int port) const;
  // Starts a program (absolute path) in the sandbox's network only; returns its pid, or -1.
  pid_t spawnInNetwork(const std::vector<std::string>& arguments) const;

  const SyslogCounter& syslog() const { return *syslog_; }

 private:
  void control(const std::string& line) const;

  const std::string daemonBinary_;
  const std::string sandboxScript_;
  std::string state_;
  std::unique_ptr<SyslogCounter> syslog_;
  pid_t unshare_ = -1;
  int network_ = -1;
};

}  // namespace zorvik

#endif  // ZORVIK_BENCH_DAEMONSANDBOX_H_
