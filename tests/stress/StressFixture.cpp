#include "StressFixture.h"

#include <cstdlib>
#include <filesystem>
#include <sstream>

namespace zorvik {
namespace {

const char kDatabaseFile[] = "SmartTask.db";
const char kListRequest[] = R"({"command":"get_scene_setting"})";
// What every sanitizer report line or its summary carries ("WARNING: ThreadSanitizer: ...",
// "ERROR: AddressSanitizer: ...", "file.cpp:12:3: runtime error: ...").
const char* const kReportMarkers[] = {"Sanitizer", "runtime error:"};
// How much of an instance's standard error a failure shows.
constexpr size_t kLongestReport = 64 * 1024;
// How many of a test's faults a failure lists.
constexpr size_t kFaultsShown = 20;

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr int kSlowdown = 5;
#else
constexpr int kSlowdown = 1;
#endif

bool isReportLine(const std::string& line) {
  for (const char* marker : kReportMarkers) {
    if (line.find(marker) != std::string::npos) return true;
  }
  return false;
}

#if defined(__SANITIZE_THREAD__)
// Where the daemon finds the suppressions: the sandbox's own folder, which it sees under this
// name. The source tree may sit under /tmp, which the sandbox replaces with a private one.
const char kSuppressionsInside[] = "/usr/lib/zorvik-sandbox/tsan.supp";

// The daemon inherits this process's environment through the sandbox. Set before main(), while
// this process has a single thread.
const bool kSuppressionsGiven = [] {
  const char* given = std::getenv("TSAN_OPTIONS");
  const std::string options =
      std::string(given == nullptr ? "" : given) + " suppressions=" + kSuppressionsInside;
  return setenv("TSAN_OPTIONS", options.c_str(), 1) == 0;
}();
#endif

}  // namespace

const std::chrono::milliseconds StressFixture::kReplyBound(2000 * kSlowdown);

void StressFixture::prepare([[maybe_unused]] Sandbox& sandbox) {
#if defined(__SANITIZE_THREAD__)
  std::filesystem::copy_file(ZORVIK_TSAN_SUPPRESSIONS, sandbox.stateFile("tsan.supp"),
                             std::filesystem::copy_options::overwrite_existing);
#endif
}

void StressFixture::TearDown() {
  if (!IsSkipped()) {
    EXPECT_EQ(sanitizerReports(), "") << "the daemon reported faults";
  }
  DaemonFixture::TearDown();
}

void StressFixture::restart(const std::string& running, const std::string& name) {
  instances_.push_back(name);
  restartDaemon(running, name);
}

std::string StressFixture::sanitizerReports() {
  std::string reports;
  for (const std::string& name : instances_) {
    const std::string errors = sandbox().daemonErrors(name);
    std::istringstream lines(errors);
    std::string line;
    bool reported = false;
    while (!reported && std::getline(lines, line)) reported = isReportLine(line);
    // The whole output, so that the report's stacks are at hand.
    if (reported) reports += "instance " + name + ":\n" + errors.substr(0, kLongestReport);
  }
  return reports;
}

std::optional<SceneMap> StressFixture::listedScenes() {
  return SceneTable::fromReply(request(kListRequest));
}

std::optional<SceneMap> StressFixture::storedScenes(std::string& error) {
  return SceneTable::readStore(sandbox().dataFile(kDatabaseFile), error);
}

std::optional<DaemonProcess> StressFixture::daemonProcess() {
  std::optional<DaemonProcess> process = DaemonProcess::find(sandbox());
  if (!process) ADD_FAILURE() << "the daemon process cannot be found from the host";
  return process;
}

std::string StressFixture::describeFaults(const std::vector<std::string>& faults) {
  std::string text;
  for (size_t i = 0; i < faults.size() && i < kFaultsShown; ++i) text += "\n  " + faults[i];
  return text;
}

}  // namespace zorvik
