// ShellRecorder: while alive, shell commands are recorded instead of run. The system() result can
// be scripted per command prefix (the longest matching prefix wins), the popen output by one
// function of the command line; a script runs without the recorder's lock, so it may wait.
// Thread-safe; the shell keeps the recording state alive while a command is in it.
#ifndef ZORVIK_TESTS_SUPPORT_SHELLRECORDER_H_
#define ZORVIK_TESTS_SUPPORT_SHELLRECORDER_H_

#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "server/Shell.h"

namespace zorvik {

class ShellRecorder {
 public:
  using Result = std::function<int(const std::string& command)>;
  using Output = std::function<std::optional<std::string>(const std::string& command)>;
  struct Command {
    std::string line;
    std::chrono::steady_clock::time_point at;
  };

  ShellRecorder() : previous_(Shell::setBackend(state_)) {}
  ~ShellRecorder() { Shell::setBackend(previous_); }

  std::vector<Command> commands() const {
    std::lock_guard<std::mutex> lock(state_->mutex);
    return state_->recorded;
  }
  std::vector<std::string> lines() const {
    std::vector<std::string> result;
    for (const Command& command : commands()) result.push_back(command.line);
    return result;
  }
  // Waits (at most 5 s) until at least `n` commands were recorded.
  bool waitForCount(size_t n) const {
    for (int i = 0; i < 500 && commands().size() < n; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return commands().size() >= n;
  }
  // The system() result of commands beginning with `prefix` (otherwise 0).
  void setResult(const std::string& prefix, int result) {
    setResult(prefix, [result](const std::string&) { return result; });
  }
  void setResult(const std::string& prefix, Result result) {
    std::lock_guard<std::mutex> lock(state_->mutex);
    state_->results[prefix] = std::move(result);
  }
  // The popen output of every command (without one: ""); nullopt: popen fails.
  void setOutput(Output output) {
    std::lock_guard<std::mutex> lock(state_->mutex);
    state_->output = std::move(output);
  }

 private:
  struct State : Shell::Backend {
    int system(const std::string& command) override {
      std::unique_lock<std::mutex> lock(mutex);
      recorded.push_back({command, std::chrono::steady_clock::now()});
      Result script;
      for (const auto& [prefix, result] : results)
        if (!script && command.rfind(prefix, 0) == 0) script = result;
      lock.unlock();
      return script ? script(command) : 0;
    }
    std::optional<std::string> capture(const std::string& command) override {
      std::unique_lock<std::mutex> lock(mutex);
      recorded.push_back({command, std::chrono::steady_clock::now()});
      const Output script = output;
      lock.unlock();
      return script ? script(command) : "";
    }
    std::mutex mutex;
    std::vector<Command> recorded;                          // guarded by mutex
    std::map<std::string, Result, std::greater<>> results;  // guarded by mutex; longer first
    Output output;                                          // guarded by mutex
  };

  const std::shared_ptr<State> state_ = std::make_shared<State>();
  const std::shared_ptr<Shell::Backend> previous_;
};

}  // namespace zorvik

#endif  // ZORVIK_TESTS_SUPPORT_SHELLRECORDER_H_
