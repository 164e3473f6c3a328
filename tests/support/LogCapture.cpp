#include "support/LogCapture.h"

namespace zorvik {

LogCapture::LogCapture() {
  previous_ = setLogSink([this](int priority, const std::string& text) {
    std::lock_guard<std::mutex> lock(mutex_);
    lines_.push_back({priority, text});
    changed_.notify_all();
  });
}

LogCapture::~LogCapture() { setLogSink(std::move(previous_)); }

std::vector<CapturedLine> LogCapture::lines() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return lines_;
}

std::string LogCapture::messageOf(const std::string& line) {
  const size_t close = line.find(']');
  std::string message = close == std::string::npos ? line : line.substr(close + 1);
  if (!message.empty() && message.back() == '\n') message.pop_back();
  return message;
}

std::vector<std::string> LogCapture::messages() const {
  std::vector<std::string> result;
  for (const CapturedLine& line : lines()) result.push_back(messageOf(line.text));
  return result;
}

bool LogCapture::contains(const std::string& needle) const { return count(needle) > 0; }

int LogCapture::count(const std::string& needle) const {
  int n = 0;
  for (const std::string& message : messages()) {
    if (message.find(needle) != std::string::npos) ++n;
  }
  return n;
}

bool LogCapture::waitFor(const std::string& needle, std::chrono::milliseconds timeout) const {
  std::unique_lock<std::mutex> lock(mutex_);
  return changed_.wait_for(lock, timeout, [&] {
    for (const CapturedLine& line : lines_) {
      if (messageOf(line.text).find(needle) != std::string::npos) return true;
    }
    return false;
  });
}

void LogCapture::clear() {
  std::lock_guard<std::mutex> lock(mutex_);
  lines_.clear();
}

}  // namespace zorvik
