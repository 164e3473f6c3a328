#include <gtest/gtest.h>

#include "action/Action.h"
#include "scene/Scene.h"
#include "support/LogCapture.h"

namespace zorvik {
namespace {

std::shared_ptr<Scene> makeScene(const std::string& actions, const std::string& launch = "") {
  return std::make_shared<Scene>(7, "Evening", actions, launch);
}

std::string textOf(json_object* object) {
  std::string text = json_object_to_json_string(object);
  json_object_put(object);
  return text;
}

TEST(SceneLaunchTest, GoHomeWinsOverTimerAndEnabledDefaultsToTrue) {
  auto scene = makeScene("[]", R"({"go_home":{"mac":"AA:BB"},"timer":{"time":"07:30"}})");
  auto home = scene->homeLaunch();
  ASSERT_TRUE(home.has_value());
  EXPECT_EQ(home->mac, "AA:BB");
  EXPECT_TRUE(home->goHome);
  EXPECT_TRUE(home->enabled);
  EXPECT_EQ(scene->alarmText(), "");
}

TEST(SceneLaunchTest, LeaveHomeReadsEnabled) {
  auto scene = makeScene("[]", R"({"leave_home":{"mac":"aa:bb","enabled":false}})");
  auto home = scene->homeLaunch();
  ASSERT_TRUE(home.has_value());
  EXPECT_FALSE(home->goHome);
  EXPECT_FALSE(home->enabled);
}

TEST(SceneLaunchTest, MissingMacKeepsTheTextWithoutLaunch) {
  LogCapture log;
  const std::string launch = R"({"go_home":{"enabled":true}})";
  auto scene = makeScene("[]", launch);
  EXPECT_FALSE(scene->homeLaunch().has_value());
  EXPECT_EQ(scene->launchJson(), launch);
  EXPECT_TRUE(log.contains("Scene go_home mac NULL"));
  auto leave = makeScene("[]", R"({"leave_home":{}})");
  EXPECT_TRUE(log.contains("Scene leave_home mac NULL"));
}

TEST(SceneLaunchTest, UnknownKeyErasesTheLaunchText) {
  LogCapture log;
  auto scene = makeScene("[]", R"({"sunrise":{}})");
  EXPECT_EQ(scene->launchJson(), "");
  EXPECT_TRUE(log.contains("Scene launch mode format error"));
  EXPECT_EQ(textOf(scene->toJson()), R"({ "id": 7, "name": "Evening", "action_list": [ ] })");
}

TEST(SceneLaunchTest, NonJsonLaunchIsKeptButLeftOutOfReplies) {
  LogCapture log;
  auto scene = makeScene("[]", "not json");
  EXPECT_EQ(scene->launchJson(), "not json");
  EXPECT_TRUE(log.contains("Scene launch not json format"));
  EXPECT_EQ(textOf(scene->toJson()), R"({ "id": 7, "name": "Evening", "action_list": [ ] })");
}

TEST(SceneLaunchTest, TimerBecomesTheAlarmTextAndChangesDropIt) {
  auto scene = makeScene("[]", R"({"timer":{"time":"07:30","repeat":"1,3"}})");
  EXPECT_EQ(scene->alarmText(), R"({ "time": "07:30", "repeat": "1,3" })");
  EXPECT_TRUE(scene->isPeriod());
  scene->setLaunchJson(R"({"go_home":{"mac":"x"}})");
  EXPECT_EQ(scene->alarmText(), "");
  EXPECT_TRUE(scene->homeLaunch().has_value());
  scene->clearAlarm();
  EXPECT_EQ(scene->launchJson(), "");
  EXPECT_FALSE(scene->homeLaunch().has_value());
}

TEST(SceneActionsTest, SkippedElementsAreLoggedByArrayPosition) {
  LogCapture log;
  auto scene =
      makeScene(R"([{"thirdParty":"quiro","type":"t","name":"n","keyName":"k","payload":{"a":1}},)"
                R"( null, {"type":"t"}, {"thirdParty":"","type":"t"}])");
  scene->parseActions();
  auto actions = scene->actions();
  ASSERT_EQ(actions.size(), 1u);
  EXPECT_EQ(actions[0]->index(), 0u);
  EXPECT_EQ(actions[0]->thirdParty(), "quiro");
  EXPECT_EQ(actions[0]->name(), "n");
  EXPECT_EQ(actions[0]->keyName(), "k");
  EXPECT_EQ(actions[0]->payload(), R"({ "a": 1 })");
  EXPECT_EQ(actions[0]->delay(), 0);
  EXPECT_TRUE(actions[0]->block());
  EXPECT_TRUE(log.contains("Scene actions[1] is null"));
  EXPECT_TRUE(log.contains("Scene actions[2] thirdParty or type is null"));
  EXPECT_TRUE(log.contains("Scene actions[3] thirdParty or type is empty"));
}

TEST(SceneActionsTest, BadTextsLeaveNoActions) {
  const std::pair<const char*, const char*> cases[] = {
      {"nope", "Scene actions not json format"},
      {"", "Scene actions not json format"},
      {R"({"a":1})", "Scene actions not json array"},
      {"[]", "Scene actions length is 0"},
  };
  for (const auto& [text, message] : cases) {
    LogCapture log;
    auto scene = makeScene(text);
    scene->parseActions();
    EXPECT_EQ(scene->actionCount(), 0u) << text;
    EXPECT_TRUE(log.contains(message)) << text;
  }
}

TEST(SceneActionsTest, SpecialTypesExpandIntoRouterActions) {
  auto scene = makeScene(
      R"([{"thirdParty":"x","type":"normal_wan_forbidden","delay":5,"block":false,)"
      R"("extra":{"duration":60000,"mac":"AA"}},)"
      R"({"thirdParty":"x","type":"normal_wifi_down","extra":{"duration":600000}},)"
      R"({"thirdParty":"x","type":"normal_shutdown","block":false,"extra":{"duration":120000}},)"
      R"({"thirdParty":"x","type":"normal_reboot","block":true}])");
  scene->parseActions();
  auto a = scene->actions();
  ASSERT_EQ(a.size(), 6u);
  const std::string wanExtra = R"({ "duration": 60000, "mac": "AA" })";
  struct Expected {
    const char* thirdParty;
    const char* command;
    int32_t delay;
    bool block;
  } expected[] = {
      {"brelkrouter_group", "wan_block", 5, true},
      {"brelkrouter_group", "wan_unblock", 60000, false},
      {"brelkrouter_group", "wifi_down", 0, true},
      {"brelkrouter_group", "wifi_up", 600000, false},
      {"brelkrouter_shutdown", "", 0, true},
      {"brelkrouter_reboot", "", 0, false},
  };
  for (size_t i = 0; i < a.size(); ++i) {
    EXPECT_EQ(a[i]->index(), i);
    EXPECT_EQ(a[i]->thirdParty(), expected[i].thirdParty) << i;
    EXPECT_EQ(a[i]->command(), expected[i].command) << i;
    EXPECT_EQ(a[i]->delay(), expected[i].delay) << i;
    EXPECT_EQ(a[i]->block(), expected[i].block) << i;
  }
  EXPECT_EQ(a[0]->type(), "normal_wan_forbidden");
  EXPECT_EQ(a[0]->extra(), wanExtra);
  EXPECT_EQ(a[1]->extra(), wanExtra);
  EXPECT_EQ(a[4]->extra(), R"({ "duration": 120000 })");
  EXPECT_EQ(a[5]->extra(), "");
}

TEST(SceneActionsTest, SpecialTypesWithoutTheirExtraAreSkipped) {
  LogCapture log;
  auto scene = makeScene(R"([{"thirdParty":"x","type":"normal_wan_forbidden"},)"
                         R"({"thirdParty":"x","type":"normal_wifi_down","extra":{"mac":"AA"}},)"
                         R"({"thirdParty":"x","type":"normal_shutdown"},)"
                         R"({"thirdParty":"x","type":"normal_reboot"}])");
  scene->parseActions();
  ASSERT_EQ(scene->actionCount(), 1u);
  EXPECT_EQ(scene->actions()[0]->thirdParty(), "brelkrouter_reboot");
  EXPECT_EQ(scene->actions()[0]->index(), 0u);
  EXPECT_TRUE(log.contains("Scene actions[0] special type extra is null"));
  EXPECT_TRUE(log.contains("Scene actions[1] special type extra duration is null"));
  EXPECT_TRUE(log.contains("Scene actions[2] special type extra is null"));
}

TEST(SceneJsonTest, KeysInOrderAndPastOnceTimersLeftOut) {
  const std::string actions = R"([{"thirdParty":"quiro","type":"t","payload":"p"}])";
  auto scene = makeScene(actions, R"({"timer":{"utc_time":5000}})");
  EXPECT_EQ(textOf(scene->toJson(4000)),
            R"({ "id": 7, "name": "Evening", "action_list": [ { "thirdParty": "quiro", )"
            R"("type": "t", "payload": "p" } ], "launch": { "timer": { "utc_time": 5000 } } })");
  EXPECT_EQ(textOf(scene->toJson(6000)),
            R"({ "id": 7, "name": "Evening", "action_list": [ { "thirdParty": "quiro", )"
            R"("type": "t", "payload": "p" } ] })");
}

TEST(SceneJsonTest, ActionListOnlyWhenTheTextIsAnArray) {
  auto scene = makeScene(R"({"a":1})", R"({"go_home":{"mac":"m"}})");
  EXPECT_EQ(textOf(scene->toJson()),
            R"({ "id": 7, "name": "Evening", "launch": { "go_home": { "mac": "m" } } })");
}

TEST(SceneJsonTest, StatusMessageReportsTheFirstActionOnly) {
  auto scene = makeScene(
      R"([{"thirdParty":"a","type":"t","name":"L","keyName":"K"},{"thirdParty":"b","type":"t","name":"M"}])");
  EXPECT_EQ(scene->buildStatusMessage(),
            R"({ "type": 5, "data": { "name": "Evening", "list": [ ] } })");
  scene->parseActions();
  EXPECT_EQ(
      scene->buildStatusMessage(),
      R"({ "type": 5, "data": { "name": "Evening", "list": [ { "name": "L", "keyName": "K" } ] } })");
}

TEST(SceneShiftTimeTest, ShiftsAcrossMidnightAndRejectsTextsWithoutColon) {
  std::string shifted = "unchanged";
  EXPECT_EQ(Scene::shiftTime("0730", 60000, shifted), -1);
  EXPECT_EQ(shifted, "unchanged");
  EXPECT_EQ(Scene::shiftTime("23:50", 1200000, shifted), 1);
  EXPECT_EQ(shifted, "00:10");
  EXPECT_EQ(Scene::shiftTime("23:59", 60000, shifted), 1);
  EXPECT_EQ(shifted, "00:00");
  EXPECT_EQ(Scene::shiftTime("07:30", 3600000, shifted), 0);
  EXPECT_EQ(shifted, "08:30");
}

}  // namespace
}  // namespace zorvik
