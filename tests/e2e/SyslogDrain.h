// SyslogDrain: the system log of a sandbox. It binds a datagram socket that the sandbox shows as
// /dev/log and reads it continuously on a thread of its own, because syslog() blocks once about
// ten datagrams are left unread. Each datagram is one line as syslog sends it, e.g.
// "<14>Nov 21 19:11:11 zorvik[43]: [ZORVIK INFO Scene.cpp:12]text\n".
//
// Threading: the drain thread appends lines under `mutex_`; any thread may read them. The
// destructor stops the thread and removes the socket file.
#ifndef ZORVIK_TESTS_E2E_SYSLOGDRAIN_H_
#define ZORVIK_TESTS_E2E_SYSLOGDRAIN_H_

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace zorvik {

class SyslogDrain {
 public:
  // Binds `path`. With `echo`, each line is written there as it arrives, without its priority
  // tag, instead of being kept.
  explicit SyslogDrain(std::string path, std::FILE* echo = nullptr);
  ~SyslogDrain();
  SyslogDrain(const SyslogDrain&) = delete;
  SyslogDrain& operator=(const SyslogDrain&) = delete;

  const std::string& path() const { return path_; }
  std::vector<std::string> lines() const;
  // How many lines contain `needle`.
  int count(const std::string& needle) const;
  // Waits until some line contains `needle`; false after `timeout`.
  bool waitFor(const std::string& needle, std::chrono::milliseconds timeout) const;

 private:
  void drain();
  void keep(std::string line);

  const std::string path_;
  std::FILE* const echo_;
  int socket_ = -1;
  std::atomic<bool> stopping_{false};
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<std::string> lines_;  // guarded by mutex_
  std::thread thread_;
};

}  // namespace zorvik

#endif  // ZORVIK_TESTS_E2E_SYSLOGDRAIN_H_
