// LogCapture: while alive, every log line of the process is recorded here instead of syslog.
// Thread-safe: lines may arrive from the timer thread while the test reads them.
#ifndef ZORVIK_TESTS_SUPPORT_LOGCAPTURE_H_
#define ZORVIK_TESTS_SUPPORT_LOGCAPTURE_H_

#include <mutex>
#include <regex>
#include <string>
#include <vector>

#include "server/Log.h"

namespace zorvik {

class LogCapture {
 public:
  LogCapture()
      : previous_(setLogSink([this](int, const std::string& text) {
          std::lock_guard<std::mutex> lock(mutex_);
          lines_.push_back(text);
        })) {}
  ~LogCapture() { setLogSink(std::move(previous_)); }

  // The whole lines, prefix and line feed included.
  std::vector<std::string> lines() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return lines_;
  }
  void clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    lines_.clear();
  }
  // The lines as the transcripts write them: "I Module.cpp message" (the level's first letter).
  std::vector<std::string> entries() const {
    std::vector<std::string> result;
    for (const std::string& line : lines()) result.push_back(shortOf(line));
    return result;
  }
  static std::string shortOf(const std::string& line) {
    static const std::regex prefix(R"(^\[ZORVIK (\w)\w* ([^:]*):\d+\]([^\n]*)\n$)");
    return std::regex_replace(line, prefix, "$1 $2 $3");
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;  // guarded by mutex_
  LogSink previous_;
};

}  // namespace zorvik

#endif  // ZORVIK_TESTS_SUPPORT_LOGCAPTURE_H_
