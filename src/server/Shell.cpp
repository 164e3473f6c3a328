// Shell: runs command lines through a replaceable backend, logging them as the daemon does.
#include "server/Shell.h"

#include <fcntl.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "server/Log.h"
#include "server/Mutex.h"

namespace zorvik {
namespace {

// Output is read in pieces that fit a 128-byte buffer.
constexpr size_t kReadBufferSize = 128;
// "e": the daemon's end of the pipe is close-on-exec, so commands started by other threads
// meanwhile do not hold it.
constexpr char kCaptureMode[] = "re";

class RealBackend : public Shell::Backend {
 public:
  int system(const std::string& command) override { return std::system(command.c_str()); }

  std::optional<std::string> capture(const std::string& command) override {
    FILE* pipe = popen(command.c_str(), kCaptureMode);
    if (pipe == nullptr) return std::nullopt;
    std::string output;
    char buffer[kReadBufferSize];
    size_t got;
    while ((got = fread(buffer, 1, sizeof(buffer) - 1, pipe)) > 0) output.append(buffer, got);
    pclose(pipe);
    return output;
  }
};

Mutex backendMutex;
std::shared_ptr<Shell::Backend> backend GUARDED_BY(backendMutex);  // null means the real one

std::shared_ptr<Shell::Backend> currentBackend() {
  MutexLock lock(backendMutex);
  if (!backend) backend = std::make_shared<RealBackend>();
  return backend;
}

}  // namespace

int Shell::system(const std::string& command) { return currentBackend()->system(command); }

std::optional<std::string> Shell::capture(const std::string& command) {
  return currentBackend()->capture(command);
}

int Shell::runLogged(const char* module, int line, int level, const std::string& command) {
  LogMessage(module, line, level).stream() << "system command: " << command;
  const int result = system(command);
  if (result != 0) LogMessage(module, line, kLogError).stream() << "system call error";
  return result;
}

std::string Shell::captureLogged(const char* module, int line, const std::string& command,
                                 LineFeeds lineFeeds) {
  std::optional<std::string> output = capture(command);
  if (!output) return "";
  if (lineFeeds == LineFeeds::kAsBlanks) std::replace(output->begin(), output->end(), '\n', ' ');
  // The blank before the comma and none after it are how this line has always read.
  LogMessage(module, line, kLogInfo).stream()
      << "system command: " << command << " ,output: " << *output;
  return *output;
}

void Shell::keepFromChildren(int fd) {
  const int flags = fcntl(fd, F_GETFD);
  if (flags >= 0) fcntl(fd, F_SETFD, flags | FD_CLOEXEC);
}

std::string Shell::quote(const std::string& text) {
  std::string quoted = "'";
  for (char c : text) {
    if (c == '\'') {
      quoted += "'\\''";
    } else {
      quoted += c;
    }
  }
  quoted += '\'';
  return quoted;
}

std::shared_ptr<Shell::Backend> Shell::setBackend(std::shared_ptr<Backend> replacement) {
  MutexLock lock(backendMutex);
  std::shared_ptr<Backend> previous = std::move(backend);
  backend = std::move(replacement);
  return previous;
}

}  // namespace zorvik
