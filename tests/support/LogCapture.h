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
  // The lines as the transcripts write them: "I Module.cpp message" (the level's first letter).
  std::vector<std::string> entries() const {
    std::vector<std::string> result;
    for (const CapturedLine& line : lines()) result.push_back(shortOf(line.text));
    return result;
  }
  static std::string shortOf(const std::string& line) {
    static const std::regex prefix(R"(^\[ZORVIK (\w)\w* ([^:]*):\d+\]([^\n]*)\n$)");
    return std::regex_replace(line, prefix, "$1 $2 $3");
  }

 private:
  mutable std::mutex mutex_;
  std::vector<CapturedLine> lines_;  // guarded by mutex_
  LogSink previous_;
};

}  // namespace zorvik

#endif  // ZORVIK_TESTS_SUPPORT_LOGCAPTURE_H_
