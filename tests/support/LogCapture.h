// LogCapture: while alive, every log line of the process is recorded here instead of syslog.
// Thread-safe: lines may arrive from the timer thread while the test reads them.
#ifndef ZORVIK_TESTS_SUPPORT_LOGCAPTURE_H_
#define ZORVIK_TESTS_SUPPORT_LOGCAPTURE_H_

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "server/Log.h"

namespace zorvik {

struct CapturedLine {
  int priority;
  std::string text;  // the whole line, prefix and line feed included
};

class LogCapture {
 public:
  LogCapture();
  ~LogCapture();

  std::vector<CapturedLine> lines() const;
  // The message parts (text after the "]" of the prefix, without the line feed).
  std::vector<std::string> messages() const;
  // True when some message contains `needle`.
  bool contains(const std::string& needle) const;
  // How many messages contain `needle`.
  int count(const std::string& needle) const;
  // Waits until some message contains `needle`; false after `timeout`.
  bool waitFor(const std::string& needle,
               std::chrono::milliseconds timeout = std::chrono::seconds(5)) const;
  void clear();

  // The message part of one captured line.
  static std::string messageOf(const std::string& line);

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<CapturedLine> lines_;  // guarded by mutex_
  LogSink previous_;
};

}  // namespace zorvik

#endif  // ZORVIK_TESTS_SUPPORT_LOGCAPTURE_H_
