// ShellRecorder: while alive, shell commands are recorded instead of run; the system() result
// and the popen output can be scripted per command prefix (the longest matching prefix wins).
// Thread-safe; the shell keeps the recording state alive while a command is in it.
#ifndef ZORVIK_TESTS_SUPPORT_SHELLRECORDER_H_
#define ZORVIK_TESTS_SUPPORT_SHELLRECORDER_H_

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "server/Shell.h"

namespace zorvik {

struct RecordedCommand {
  std::string line;
  bool captured;  // true for popen-style commands
  std::chrono::steady_clock::time_point at;
};

class ShellRecorder {
 public:
  using Output = std::function<std::optional<std::string>(const std::string& command)>;

  ShellRecorder() : state_(std::make_shared<State>()), previous_(Shell::setBackend(state_)) {}
  ~ShellRecorder() { Shell::setBackend(previous_); }

  std::vector<RecordedCommand> commands() const {
    return locked([&] { return state_->recorded; });
  }
  std::vector<std::string> lines() const {
    std::vector<std::string> result;
    for (const RecordedCommand& command : commands()) result.push_back(command.line);
    return result;
  }
  // Waits until at least `n` commands were recorded; false after `timeout`.
  bool waitForCount(size_t n, std::chrono::milliseconds timeout = std::chrono::seconds(5)) const {
    std::unique_lock<std::mutex> lock(state_->mutex);
    return state_->changed.wait_for(lock, timeout, [&] { return state_->recorded.size() >= n; });
  }
  void clear() {
    locked([&] { state_->recorded.clear(); });
  }
  // The system() result of commands beginning with `prefix` (otherwise 0).
  void setResult(const std::string& prefix, int result) {
    locked([&] { state_->results[prefix] = result; });
  }
  // The popen output of commands beginning with `prefix` (otherwise ""); nullopt: popen fails.
  void setOutputFunction(const std::string& prefix, Output output) {
    locked([&] { state_->outputs[prefix] = std::move(output); });
  }
  void setOutput(const std::string& prefix, std::optional<std::string> output) {
    setOutputFunction(prefix, [output](const std::string&) { return output; });
  }

 private:
  struct State : Shell::Backend {
    int system(const std::string& command) override {
      std::lock_guard<std::mutex> lock(mutex);
      return record(command, false, results, 0);
    }
    std::optional<std::string> capture(const std::string& command) override {
      std::unique_lock<std::mutex> lock(mutex);
      const Output output = record(command, true, outputs, Output());
      lock.unlock();  // the output function may take its time
      return output ? output(command) : std::optional<std::string>("");
    }
    // Records a command and returns its script; in these maps a longer prefix comes first.
    template <typename T>
    T record(const std::string& command, bool captured,
             const std::map<std::string, T, std::greater<>>& scripts, T otherwise) {
      recorded.push_back({command, captured, std::chrono::steady_clock::now()});
      changed.notify_all();
      for (const auto& [prefix, script] : scripts)
        if (command.rfind(prefix, 0) == 0) return script;
      return otherwise;
    }
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<RecordedCommand> recorded;                  // guarded by mutex
    std::map<std::string, int, std::greater<>> results;     // guarded by mutex
    std::map<std::string, Output, std::greater<>> outputs;  // guarded by mutex
  };

  template <typename Body>
  auto locked(Body body) const -> decltype(body()) {
    std::lock_guard<std::mutex> lock(state_->mutex);
    return body();
  }

  std::shared_ptr<State> state_;
  std::shared_ptr<Shell::Backend> previous_;
};

}  // namespace zorvik

#endif  // ZORVIK_TESTS_SUPPORT_SHELLRECORDER_H_
