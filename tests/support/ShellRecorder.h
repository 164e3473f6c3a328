// ShellRecorder: while alive, shell commands are recorded instead of run.
// Results and outputs can be scripted per command prefix. Thread-safe.
#ifndef ZORVIK_TESTS_SUPPORT_SHELLRECORDER_H_
#define ZORVIK_TESTS_SUPPORT_SHELLRECORDER_H_

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
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
  ShellRecorder();
  ~ShellRecorder();

  std::vector<RecordedCommand> commands() const;
  std::vector<std::string> lines() const;
  // Waits until at least `n` commands were recorded; false after `timeout`.
  bool waitForCount(size_t n, std::chrono::milliseconds timeout = std::chrono::seconds(5)) const;
  void clear();

  // system() result for commands that begin with `prefix` (default 0).
  void setResult(const std::string& prefix, int result);
  // popen output for commands that begin with `prefix` (default ""); nullopt = popen fails.
  void setOutput(const std::string& prefix, std::optional<std::string> output);
  // Computes the popen output of commands that begin with `prefix`.
  void setOutputFunction(const std::string& prefix,
                         std::function<std::optional<std::string>(const std::string&)> fn);

 private:
  class Backend;
  std::shared_ptr<Backend> backend_;
  std::shared_ptr<Shell::Backend> previous_;
};

}  // namespace zorvik

#endif  // ZORVIK_TESTS_SUPPORT_SHELLRECORDER_H_
