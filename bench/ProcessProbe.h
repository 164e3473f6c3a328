// ProcessProbe: what /proc tells about a running process: its resident memory and how often its
// threads were switched in (each switch in of an idle thread is a wake-up).
//
// Threading: stateless static functions.
#ifndef ZORVIK_BENCH_PROCESSPROBE_H_
#define ZORVIK_BENCH_PROCESSPROBE_H_

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace zorvik {

class ProcessProbe {
 public:
  // Resident set size in KiB; 0 when the process is gone.
  static uint64_t residentKiB(pid_t pid);
  // Voluntary plus involuntary context switches of every thread of the process.
  static uint64_t contextSwitches(pid_t pid);
  // The first process below `root` (children, grandchildren, ...) whose name is `name`; -1 if none.
  static pid_t findDescendant(pid_t root, const std::string& name);

 private:
  static std::vector<pid_t> childrenOf(pid_t pid);
  // The number after `key` in a /proc status file, or 0.
  static uint64_t statusValue(const std::string& statusFile, const std::string& key);
};

}  // namespace zorvik

#endif  // ZORVIK_BENCH_PROCESSPROBE_H_
