// A scene keeps its reply text from one reply to the next: it must still read as the scene does
// now after each kind of change, and lose a one-time timer launch once its instant has passed.
#include <gtest/gtest.h>

#include <functional>

#include "scene/Scene.h"

namespace zorvik {
namespace {

TEST(SceneReplyTest, KeptReplyTextFollowsEveryChangeAndAPassingOneTimeLaunch) {
  const int64_t at = 4102444800000;  // the launch's instant, in ms
  const std::function<void(Scene&)> changes[] = {
      [](Scene& scene) { scene.setId(2); },
      [](Scene& scene) { scene.setName("B"); },
      [](Scene& scene) { scene.setActionsJson("[]"); },
      [](Scene& scene) { scene.setLaunchJson(R"({"go_home":{"mac":"AA"}})"); },
  };
  for (const auto& change : changes) {
    Scene scene(1, "A", "[1]", R"({"timer":{"utc_time":4102444800000}})");
    const std::string before = scene.replyText(at);
    EXPECT_NE(before.find("\"launch\""), std::string::npos);
    EXPECT_EQ(scene.replyText(at + 1), R"({ "id": 1, "name": "A", "action_list": [ 1 ] })");
    change(scene);
    EXPECT_NE(scene.replyText(at), before);
  }
}

}  // namespace
}  // namespace zorvik
