// DaemonProcess: the daemon of a sandbox as the host sees it, for what only /proc tells: its
// resident memory, how often its threads were switched in, its open descriptors and their limit.
// The daemon is found as the process named "zorvik" in the sandbox's network namespace (the pid
// it writes for itself is only valid inside the sandbox's pid namespace). A process whose host
// pid is known already, such as a baseline server beside the daemon, is read the same way.
//
// Holds nothing but the pid; any thread. A pid that ended reads as gone (-1 values).
#ifndef ZORVIK_TESTS_E2E_DAEMONPROCESS_H_
#define ZORVIK_TESTS_E2E_DAEMONPROCESS_H_

#include <sys/types.h>

#include <optional>

#include "Sandbox.h"

namespace zorvik {

class DaemonProcess {
 public:
  // The daemon now running in `sandbox` (which must be serving); nothing when none is found.
  static std::optional<DaemonProcess> find(const Sandbox& sandbox);
  explicit DaemonProcess(pid_t pid) : pid_(pid) {}

  pid_t pid() const { return pid_; }
  // VmRSS in KiB; -1 when the process is gone.
  long residentKiB() const;
  // VmHWM, the most resident memory the process ever had, in KiB; -1 when it is gone.
  long peakResidentKiB() const;
  // Voluntary and involuntary context switches of all its threads together (each switch in of
  // an idle thread is a wake-up); -1 when it is gone.
  long contextSwitches() const;
  // Descriptors open in the process; -1 when it is gone.
  long openDescriptors() const;
  // The soft limit of open descriptors; -1 when unknown or unlimited.
  long descriptorLimit() const;

 private:
  pid_t pid_;
};

}  // namespace zorvik

#endif  // ZORVIK_TESTS_E2E_DAEMONPROCESS_H_
