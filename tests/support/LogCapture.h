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
  LogCapture()
      : previous_(setLogSink([this](int priority, const std::string& text) {
          std::lock_guard<std::mutex> lock(mutex_);
          lines_.push_back({priority, text});
          logged_.notify_all();
        })) {}
  ~LogCapture() { setLogSink(std::move(previous_)); }

  std::vector<CapturedLine> lines() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return lines_;
  }
  void clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    lines_.clear();
  }
  // The message parts of the lines, in order.
  std::vector<std::string> messages() const {
    std::vector<std::string> result;
    for (const CapturedLine& line : lines()) result.push_back(messageOf(line.text));
    return result;
  }
  // How many messages contain `needle`.
  int count(const std::string& needle) const {
    int n = 0;
    for (const std::string& message : messages()) n += message.find(needle) != std::string::npos;
    return n;
  }
  bool contains(const std::string& needle) const { return count(needle) > 0; }
  // Waits until some message contains `needle`; false after `timeout`.
  bool waitFor(const std::string& needle,
               std::chrono::milliseconds timeout = std::chrono::seconds(10)) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return logged_.wait_for(lock, timeout, [&] {
      for (const CapturedLine& line : lines_) {
        if (messageOf(line.text).find(needle) != std::string::npos) return true;
      }
      return false;
    });
  }
  // The text after the "]" of the line's prefix, without the line feed.
  static std::string messageOf(const std::string& line) {
    const size_t start = line.find(']') + 1;
    return line.substr(start, line.size() - start - (!line.empty() && line.back() == '\n'));
  }

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable logged_;  // signalled under mutex_ for every new line
  std::vector<CapturedLine> lines_;         // guarded by mutex_
  LogSink previous_;
};

}  // namespace zorvik

#endif  // ZORVIK_TESTS_SUPPORT_LOGCAPTURE_H_
