#include "FuzzEnvironment.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>

#include "server/Log.h"
#include "server/Shell.h"

namespace zorvik {
namespace {

// RAM-backed where the machine has it; otherwise the system's temporary folder.
const char kRamFolder[] = "/dev/shm";
const char kFolderPattern[] = "/zorvik-fuzz-XXXXXX";
const char kThreadsKey[] = "Threads:";
constexpr std::chrono::milliseconds kThreadWait(1000);
constexpr std::chrono::milliseconds kThreadPoll(1);

// Every command "succeeds" with no output, and nothing is ever started.
class SilentShell : public Shell::Backend {
 public:
  int system(const std::string&) override { return 0; }
  std::optional<std::string> capture(const std::string&) override { return std::string(); }
};

std::string scratchRoot() {
  if (std::filesystem::is_directory(kRamFolder)) return kRamFolder;
  return std::filesystem::temp_directory_path().string();
}

std::string makeScratchFolder() {
  std::string pattern = scratchRoot() + kFolderPattern;
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed: " + pattern);
  return pattern + "/";
}

}  // namespace

FuzzEnvironment::FuzzEnvironment() : folder_(makeScratchFolder()) {
  setLogSink([](int, const std::string&) {});
  Shell::setBackend(std::make_shared<SilentShell>());
}

FuzzEnvironment& FuzzEnvironment::get() {
  static FuzzEnvironment* const environment = [] {
    auto* created = new FuzzEnvironment();
    std::atexit([] {
      std::error_code ignored;
      std::filesystem::remove_all(get().folder(), ignored);
    });
    return created;
  }();
  return *environment;
}

std::vector<std::string> FuzzEnvironment::splitLines(const uint8_t* data, size_t size) {
  std::vector<std::string> fields(1);
  for (size_t i = 0; i < size; ++i) {
    if (data[i] == '\n') {
      fields.emplace_back();
    } else {
      fields.back().push_back(static_cast<char>(data[i]));
    }
  }
  return fields;
}

const std::string& FuzzEnvironment::field(const std::vector<std::string>& fields, size_t index) {
  static const std::string absent;
  return index < fields.size() ? fields[index] : absent;
}

int FuzzEnvironment::threadCount() {
  std::ifstream status("/proc/self/status");
  std::string key;
  while (status >> key) {
    if (key == kThreadsKey) {
      int threads = 0;
      status >> threads;
      return threads;
    }
  }
  return 0;
}

void FuzzEnvironment::waitForThreads(int count) {
  const auto deadline = std::chrono::steady_clock::now() + kThreadWait;
  while (threadCount() > count && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(kThreadPoll);
  }
}

}  // namespace zorvik
