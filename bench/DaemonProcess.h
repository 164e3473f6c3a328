// DaemonProcess: the daemon of the benchmark's sandbox as the host sees it, for what only /proc
// tells: its memory and how often its threads were switched in. The daemon is found as
// the process named "zorvik" in this process's network namespace, which is the sandbox's (the pid
// it writes for itself is only valid inside the sandbox's pid namespace). A process whose host
// pid is known already, such as a baseline server beside the daemon, is read the same way.
//
// Holds nothing but the pid; any thread. A pid that ended reads as gone (-1 values).
#ifndef ZORVIK_BENCH_DAEMONPROCESS_H_
#define ZORVIK_BENCH_DAEMONPROCESS_H_

#include <sys/types.h>

#include <optional>

namespace zorvik {

class DaemonProcess {
 public:
  // The daemon now running in this process's network namespace; nothing when none is found.
  static std::optional<DaemonProcess> find();
  explicit DaemonProcess(pid_t pid) : pid_(pid) {}

  pid_t pid() const { return pid_; }
  // VmRSS in KiB; -1 when the process is gone.
  long residentKiB() const;
  // The process's own memory in KiB: the pages only it has written (Private_Dirty of
  // /proc/PID/smaps_rollup: heap, stacks, the libraries' written data). Unlike the resident size
  // it leaves out the shared libraries' code, which a desktop's libraries inflate far beyond a
  // router's. -1 when the process is gone.
  long privateDirtyKiB() const;
  // Voluntary and involuntary context switches of all its threads together (each switch in of
  // an idle thread is a wake-up); -1 when it is gone.
  long contextSwitches() const;

 private:
  pid_t pid_;
};

}  // namespace zorvik

#endif  // ZORVIK_BENCH_DAEMONPROCESS_H_
