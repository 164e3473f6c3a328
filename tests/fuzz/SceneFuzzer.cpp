// Fuzzes a scene built from hostile texts. Input lines: the actions JSON; the launch JSON; the
// name; a presence event ("1" or "0" for connected, then the MAC); a crontab tick (the weekday, a
// blank, the time); now in seconds. The scene answers its reply JSON (kept and built anew alike)
// and status message (one shell word to the feed program), reacts to presence and tick (which
// runs actions on this thread, so not for a TV) and is stopped again.
#include <wordexp.h>

#include <memory>
#include <string>

#include "FuzzEnvironment.h"
#include "scene/Scene.h"

namespace zorvik {
namespace {

const char kFeedProgram[] = "/usr/sbin/vantpost";
// Times are kept within a few thousand years so that milliseconds cannot overflow.
constexpr int64_t kLargestSeconds = 1LL << 40;

void checkReplies(Scene& scene, int64_t nowSeconds) {
  const std::string reply = Json::takeText(scene.toJson(nowSeconds * 1000));
  fuzz::requireObject(reply);
  fuzz::require(scene.replyText(nowSeconds * 1000) == reply);  // the kept text reads as built anew
  const std::string message = scene.buildStatusMessage();
  fuzz::requireObject(message);
  // The shell's own word splitting, with command substitution refused.
  wordexp_t words;
  fuzz::require(wordexp(scene.feedCommand().c_str(), &words, WRDE_NOCMD) == 0);
  fuzz::require(words.we_wordc == 2 && words.we_wordv[0] == std::string(kFeedProgram) &&
                words.we_wordv[1] == message);
  wordfree(&words);
}

}  // namespace
}  // namespace zorvik

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zorvik;
  const std::vector<std::string> lines = fuzz::lines(data, size, 6);
  const std::string& tick = lines[4];
  const int64_t nowSeconds = fuzz::number(lines[5]) % kLargestSeconds;
  auto scene = std::make_shared<Scene>(1, lines[2], lines[0], lines[1]);
  scene->clearActions();
  scene->parseActions();
  checkReplies(*scene, nowSeconds);
  scene->startByDeviceStatus(lines[3].empty() ? "" : lines[3].substr(1), lines[3][0] == '1');
  scene->stop();
  scene->execute();
  scene->stop();
  if (fuzz::namesTv(lines[0])) return 0;
  const size_t blank = tick.find(' ');
  fuzz::runAndSettle([&] {
    scene->startByCrontab(static_cast<int32_t>(fuzz::number(tick)),
                          blank == std::string::npos ? "" : tick.substr(blank + 1), nowSeconds);
  });
  return 0;
}
