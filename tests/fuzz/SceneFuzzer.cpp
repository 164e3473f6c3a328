// Fuzzes a scene built from hostile texts. Input lines: the actions JSON; the launch JSON; the
// scene name; a presence event ("1" or "0" for connected, then the MAC); a crontab tick (the
// weekday, a blank, the time text); the current time in seconds. The scene parses its actions
// and launch, answers its reply JSON and status message, reacts to the presence event and the
// tick, and is stopped again. Every shell command is swallowed; the status message must travel
// to the feed program as exactly one shell word.
#include <json-c/json.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "FuzzEnvironment.h"
#include "action/Action.h"
#include "scene/Scene.h"

namespace zorvik {
namespace {

const char kFeedProgram[] = "/usr/sbin/vantpost ";
// Times are kept within a few thousand years so that milliseconds cannot overflow.
constexpr int64_t kLargestSeconds = 1LL << 40;

void require(bool condition) {
  if (!condition) std::abort();
}

// The text must read back as a JSON object.
void requireJsonObject(const std::string& text) {
  json_object* parsed = json_tokener_parse(text.c_str());
  require(parsed != nullptr && json_object_is_type(parsed, json_type_object));
  json_object_put(parsed);
}

int64_t numberOf(const std::string& text) { return std::strtoll(text.c_str(), nullptr, 10); }

// The value of a text made only of single-quoted pieces and backslash-escaped characters, as
// the shell reads one word; false when the text holds anything else (a blank, a bare quote).
bool readShellWord(const std::string& text, std::string& word) {
  for (size_t i = 0; i < text.size();) {
    if (text[i] == '\'') {
      const size_t close = text.find('\'', i + 1);
      if (close == std::string::npos) return false;
      word.append(text, i + 1, close - i - 1);
      i = close + 1;
    } else if (text[i] == '\\' && i + 1 < text.size()) {
      word.push_back(text[i + 1]);
      i += 2;
    } else {
      return false;
    }
  }
  return true;
}

void checkReplies(Scene& scene, int64_t nowSeconds) {
  json_object* reply = scene.toJson(nowSeconds * 1000);
  requireJsonObject(json_object_to_json_string(reply));
  json_object_put(reply);

  const std::string message = scene.buildStatusMessage();
  requireJsonObject(message);

  const std::string feed = scene.feedCommand();
  require(feed.rfind(kFeedProgram, 0) == 0);
  std::string word;
  require(readShellWord(feed.substr(sizeof(kFeedProgram) - 1), word) && word == message);
}

// A TV action waits up to a minute for the set to wake; the TV helper has tests of its own, and
// the crontab replay runs actions on the fuzzer's thread.
bool drivesTv(const Scene& scene) {
  for (const std::shared_ptr<Action>& action : scene.actions()) {
    if (action->thirdParty() == "tevra" || action->thirdParty() == "tarwen") return true;
  }
  return false;
}

}  // namespace
}  // namespace zorvik

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using zorvik::FuzzEnvironment;
  FuzzEnvironment::get();
  const std::vector<std::string> fields = FuzzEnvironment::splitLines(data, size);
  const std::string none;
  const std::string& presence = FuzzEnvironment::field(fields, 3);
  const std::string& tick = FuzzEnvironment::field(fields, 4);
  const int64_t nowSeconds =
      zorvik::numberOf(FuzzEnvironment::field(fields, 5)) % zorvik::kLargestSeconds;

  auto scene = std::make_shared<zorvik::Scene>(1, FuzzEnvironment::field(fields, 2), fields[0],
                                               FuzzEnvironment::field(fields, 1));
  scene->clearActions();
  scene->parseActions();
  zorvik::checkReplies(*scene, nowSeconds);

  const bool connected = !presence.empty() && presence[0] == '1';
  scene->startByDeviceStatus(presence.empty() ? none : presence.substr(1), connected);
  scene->stop();
  scene->execute();
  scene->stop();

  if (!zorvik::drivesTv(*scene)) {
    const size_t blank = tick.find(' ');
    const auto week = static_cast<int32_t>(zorvik::numberOf(tick));
    const int threads = FuzzEnvironment::threadCount();
    scene->startByCrontab(week, blank == std::string::npos ? none : tick.substr(blank + 1),
                          nowSeconds);
    FuzzEnvironment::waitForThreads(threads);
  }
  scene->setLaunchJson(FuzzEnvironment::field(fields, 1));
  scene->clearAlarm();
  zorvik::checkReplies(*scene, nowSeconds);
  return 0;
}
