#include "support/ShellRecorder.h"

namespace zorvik {

class ShellRecorder::Backend : public Shell::Backend {
 public:
  int system(const std::string& command) override {
    std::lock_guard<std::mutex> lock(mutex);
    record(command, false);
    for (const auto& [prefix, result] : results) {
      if (command.compare(0, prefix.size(), prefix) == 0) return result;
    }
    return 0;
  }

  std::optional<std::string> capture(const std::string& command) override {
    std::function<std::optional<std::string>(const std::string&)> fn;
    {
      std::lock_guard<std::mutex> lock(mutex);
      record(command, true);
      for (const auto& [prefix, f] : outputs) {
        if (command.compare(0, prefix.size(), prefix) == 0) {
          fn = f;
          break;
        }
      }
    }
    return fn ? fn(command) : std::optional<std::string>("");
  }

  void record(const std::string& command, bool captured) {
    recorded.push_back({command, captured, std::chrono::steady_clock::now()});
    changed.notify_all();
  }

  mutable std::mutex mutex;
  mutable std::condition_variable changed;
  std::vector<RecordedCommand> recorded;                 // guarded by mutex
  std::map<std::string, int, std::greater<>> results;    // guarded by mutex; longest prefix first
  std::map<std::string, std::function<std::optional<std::string>(const std::string&)>,
           std::greater<>>
      outputs;  // guarded by mutex
};

ShellRecorder::ShellRecorder() : backend_(std::make_shared<Backend>()) {
  previous_ = Shell::setBackend(backend_);
}

ShellRecorder::~ShellRecorder() { Shell::setBackend(previous_); }

std::vector<RecordedCommand> ShellRecorder::commands() const {
  std::lock_guard<std::mutex> lock(backend_->mutex);
  return backend_->recorded;
}

std::vector<std::string> ShellRecorder::lines() const {
  std::vector<std::string> result;
  for (const RecordedCommand& command : commands()) result.push_back(command.line);
  return result;
}

bool ShellRecorder::waitForCount(size_t n, std::chrono::milliseconds timeout) const {
  std::unique_lock<std::mutex> lock(backend_->mutex);
  return backend_->changed.wait_for(lock, timeout, [&] { return backend_->recorded.size() >= n; });
}

void ShellRecorder::clear() {
  std::lock_guard<std::mutex> lock(backend_->mutex);
  backend_->recorded.clear();
}

void ShellRecorder::setResult(const std::string& prefix, int result) {
  std::lock_guard<std::mutex> lock(backend_->mutex);
  backend_->results[prefix] = result;
}

void ShellRecorder::setOutput(const std::string& prefix, std::optional<std::string> output) {
  setOutputFunction(prefix, [output](const std::string&) { return output; });
}

void ShellRecorder::setOutputFunction(
    const std::string& prefix, std::function<std::optional<std::string>(const std::string&)> fn) {
  std::lock_guard<std::mutex> lock(backend_->mutex);
  backend_->outputs[prefix] = std::move(fn);
}

}  // namespace zorvik
