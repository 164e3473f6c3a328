#include "FuzzEnvironment.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>

#include "server/Log.h"
#include "server/Shell.h"

namespace zorvik {
namespace {

// RAM-backed where the machine has it; otherwise the system's temporary folder.
const char kRamFolder[] = "/dev/shm";
const char kFolderPattern[] = "/zorvik-fuzz-XXXXXX";

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

const std::string& FuzzEnvironment::field(const std::vector<std::string>& fields, size_t index,
                                          const std::string& fallback) {
  return index < fields.size() ? fields[index] : fallback;
}

}  // namespace zorvik
