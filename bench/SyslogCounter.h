// SyslogCounter: a stand-in for the router's log daemon. It binds a datagram socket (the
// sandbox shows it as /dev/log) and reads it continuously, because syslog() blocks once a few
// datagrams are left unread; it keeps no lines, only how many arrived and how many of them were
// the timer thread's "process next event" line, one per pass of that thread.
//
// Threading: the drain thread updates the atomic counters; any thread may read them. The
// destructor stops the thread and removes the socket file.
#ifndef ZORVIK_BENCH_SYSLOGCOUNTER_H_
#define ZORVIK_BENCH_SYSLOGCOUNTER_H_

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

namespace zorvik {

class SyslogCounter {
 public:
  explicit SyslogCounter(std::string path);
  ~SyslogCounter();
  SyslogCounter(const SyslogCounter&) = delete;
  SyslogCounter& operator=(const SyslogCounter&) = delete;

  const std::string& path() const { return path_; }
  uint64_t lines() const { return lines_.load(); }
  uint64_t timerPasses() const { return timerPasses_.load(); }

 private:
  void drain();

  const std::string path_;
  int socket_ = -1;
  std::atomic<bool> stopping_{false};
  std::atomic<uint64_t> lines_{0};
  std::atomic<uint64_t> timerPasses_{0};
  std::thread thread_;
};

}  // namespace zorvik

#endif  // ZORVIK_BENCH_SYSLOGCOUNTER_H_
