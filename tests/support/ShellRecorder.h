// ShellRecorder: while alive, shell commands are recorded instead of run; the system() result
// and the popen output can be scripted per command prefix (the longest matching prefix wins).
// Thread-safe; the shell keeps the backend alive while a command is in it.
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

  ShellRecorder() : backend_(std::make_shared<Backend>()), previous_(Shell::setBackend(backend_)) {}
  ~ShellRecorder() { Shell::setBackend(previous_); }

  std::vector<RecordedCommand> commands() const {
    std::lock_guard<std::mutex> lock(backend_->mutex);
    return backend_->recorded;
  }
  std::vector<std::string> lines() const {
    std::vector<std::string> result;
    for (const RecordedCommand& command : commands()) result.push_back(command.line);
    return result;
  }
  // Waits until at least `n` commands were recorded; false after `timeout`.
  bool waitForCount(size_t n, std::chrono::milliseconds timeout = std::chrono::seconds(5)) const {
    std::unique_lock<std::mutex> lock(backend_->mutex);
    return backend_->changed.wait_for(lock, timeout, [&] { return backend_->recorded.size() >= n; });
  }
  void clear() {
    std::lock_guard<std::mutex> lock(backend_->mutex);
    backend_->recorded.clear();
  }
  // The system() result of commands beginning with `prefix` (otherwise 0).
  void setResult(const std::string& prefix, int result) {
    std::lock_guard<std::mutex> lock(backend_->mutex);
    backend_->results[prefix] = result;
  }
  // The popen output of commands beginning with `prefix` (otherwise ""); nullopt: popen fails.
  void setOutputFunction(const std::string& prefix, Output output) {
    std::lock_guard<std::mutex> lock(backend_->mutex);
    backend_->outputs[prefix] = std::move(output);
  }
  void setOutput(const std::string& prefix, std::optional<std::string> output) {
    setOutputFunction(prefix, [output](const std::string&) { return output; });
  }

 private:
  struct Backend : Shell::Backend {
    int system(const std::string& command) override {
      std::lock_guard<std::mutex> lock(mutex);
      record(command, false);
      return scriptFor(results, command, 0);
    }
    std::optional<std::string> capture(const std::string& command) override {
      std::unique_lock<std::mutex> lock(mutex);
      record(command, true);
      const Output output = scriptFor(outputs, command, Output());
      lock.unlock();  // the output function may take its time
      return output ? output(command) : std::optional<std::string>("");
    }
    void record(const std::string& command, bool captured) {
      recorded.push_back({command, captured, std::chrono::steady_clock::now()});
      changed.notify_all();
    }
    // In these maps a longer prefix comes before the shorter ones it begins with.
    template <typename T>
    static T scriptFor(const std::map<std::string, T, std::greater<>>& scripts,
                       const std::string& command, T otherwise) {
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

  std::shared_ptr<Backend> backend_;
  std::shared_ptr<Shell::Backend> previous_;
};

}  // namespace zorvik

#endif  // ZORVIK_TESTS_SUPPORT_SHELLRECORDER_H_
