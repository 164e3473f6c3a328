#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "scene/Scene.h"
#include "scene/SceneManager.h"
#include "server/ZorvikTunnel.h"
#include "store/DataManager.h"
#include "support/LogCapture.h"
#include "support/ShellRecorder.h"
#include "support/TempDir.h"

namespace zorvik {
namespace {

const char kFormatError[] = "{ \"code\": 3, \"msg\": \"parameter format error\" }";
const char kApiNotExists[] = "{ \"code\": -1, \"msg\": \"api not exists\" }";
const char kNotFound[] = "{ \"code\": 3502, \"msg\": \"scene not found\" }";
const char kSuccess[] = "{ \"code\": 0, \"msg\": \"\" }";
const char kTunnelPrefix[] = "[ZORVIK INFO ZorvikTunnel.cpp:";

// A tunnel in front of a real scene manager over a store in a temporary folder. Shell commands
// are recorded, log lines captured.
class ZorvikTunnelTest : public ::testing::Test {
 protected:
  void SetUp() override {
    store_ = std::make_unique<DataManager>(dir_.path().string() + "/", dir_.file("factory.conf"));
    manager_ = std::make_unique<SceneManager>(store_.get(), dir_.file("ntp.status"),
                                              [](std::chrono::milliseconds) {});
    log_.clear();
  }

  std::string handle(const std::string& parameter) {
    return ZorvikTunnel::getInstance().handleCommand(parameter, *manager_);
  }

  // The messages the tunnel itself logged, in order.
  std::vector<std::string> tunnelMessages() const {
    std::vector<std::string> messages;
    for (const CapturedLine& line : log_.lines()) {
      if (line.text.rfind(kTunnelPrefix, 0) == 0) {
        messages.push_back(LogCapture::messageOf(line.text));
      }
    }
    return messages;
  }

  std::shared_ptr<Scene> storedScene(int32_t id) {
    for (const std::shared_ptr<Scene>& scene : store_->getScenes()) {
      if (scene->id() == id) return scene;
    }
    return nullptr;
  }

  TempDir dir_;
  ShellRecorder shell_;
  LogCapture log_;
  std::unique_ptr<DataManager> store_;
  std::unique_ptr<SceneManager> manager_;
};

TEST_F(ZorvikTunnelTest, TextsThatAreNoCommandAnswerFormatError) {
  for (const char* parameter : {"", "not json", "null", "[1,2]", "42", "\"scene_start\"", "{}",
                                "{\"command\":null}", "{\"Command\":\"get_scene_count\"}"}) {
    EXPECT_EQ(handle(parameter), kFormatError) << parameter;
  }
  EXPECT_TRUE(tunnelMessages().empty());
}

TEST_F(ZorvikTunnelTest, UnknownCommandWordsAnswerApiNotExists) {
  for (const char* parameter :
       {"{\"command\":\"scene_stat\"}", "{\"command\":\"SCENE_START\",\"id\":1}",
        "{\"command\":\"\"}", "{\"command\":7}", "{\"command\":{\"a\":1}}"}) {
    EXPECT_EQ(handle(parameter), kApiNotExists) << parameter;
  }
  EXPECT_TRUE(tunnelMessages().empty());
}

TEST_F(ZorvikTunnelTest, RefusedMembersAnswerFormatErrorWithoutReachingTheManager) {
  manager_->addScene(0, "Night", "[ ]", "");
  log_.clear();
  const char* const refused[] = {
      R"({"command":"scene_setting","action_list":[]})",
      R"({"command":"scene_setting","name":"","action_list":[]})",
      R"({"command":"scene_setting","name":null,"action_list":[]})",
      R"({"command":"scene_setting","name":"Night"})",
      R"({"command":"scene_setting","name":"Night","action_list":null})",
      R"({"command":"scene_setting","name":"Night","action_list":{"a":1}})",
      R"({"command":"scene_setting","name":"Night","action_list":"[]"})",
      R"({"command":"get_single_scene_setting"})",
      R"({"command":"get_single_scene_setting","id":null})",
      R"({"command":"get_multiple_scene_setting","start_id":1})",
      R"({"command":"get_multiple_scene_setting","end_id":1})",
      R"({"command":"scene_update","name":"Night","action_list":[]})",
      R"({"command":"scene_update","id":1,"action_list":[]})",
      R"({"command":"scene_update","id":1,"name":"","action_list":[]})",
      R"({"command":"scene_update","id":1,"name":"Night","action_list":{}})",
      R"({"command":"scene_start"})",
      R"({"command":"scene_stop"})",
      R"({"command":"scene_launch","id":1})",
      R"({"command":"scene_launch","id":1,"launch":null})",
      R"({"command":"scene_launch","launch":{}})",
      R"({"command":"scene_launch_delete"})",
      R"({"command":"scene_delete","id":null})",
      R"({"command":"scene_start_by_device_status","mac":"","connected":true})",
      R"({"command":"scene_start_by_device_status","mac":"AA"})",
      R"({"command":"scene_start_by_device_status","connected":true})",
      R"({"command":"is_scene_processing"})",
      R"({"command":"scene_start_by_crontab","time":"07:30"})",
      R"({"command":"scene_start_by_crontab","week":1})",
      R"({"command":"scene_start_by_crontab","week":1,"time":""})",
  };
  for (const char* parameter : refused) EXPECT_EQ(handle(parameter), kFormatError) << parameter;
  EXPECT_TRUE(tunnelMessages().empty());
  EXPECT_EQ(manager_->getScenesCount(), "{ \"code\": 0, \"msg\": \"\", \"count\": 1 }");
  EXPECT_EQ(storedScene(1)->name(), "Night");
}

TEST_F(ZorvikTunnelTest, SceneSettingPassesJsonCTextsAndLogsFourLines) {
  const std::string reply =
      handle(R"({ "command" : "scene_setting", "name": "Night", )"
             R"("action_list": [{"thirdParty":"system",  "type":"t", "payload":"a/b"}], )"
             R"("launch": {"go_home": {"mac": "AA:BB"}} })");

  EXPECT_EQ(reply, "{ \"code\": 0, \"msg\": \"\", \"id\": 1 }");
  const std::string actions =
      "[ { \"thirdParty\": \"system\", \"type\": \"t\", \"payload\": \"a\\/b\" } ]";
  const std::string launch = "{ \"go_home\": { \"mac\": \"AA:BB\" } }";
  EXPECT_EQ(tunnelMessages(), (std::vector<std::string>{"addScene: id=-1", "addScene: name=Night",
                                                        "addScene: actions=" + actions,
                                                        "addScene: launch=" + launch}));
  const std::shared_ptr<Scene> stored = storedScene(1);
  ASSERT_NE(stored, nullptr);
  EXPECT_EQ(stored->name(), "Night");
  EXPECT_EQ(stored->actionsJson(), actions);
  EXPECT_EQ(stored->launchJson(), launch);
}

TEST_F(ZorvikTunnelTest, SceneSettingWithoutLaunchLogsThreeLinesAndKeepsLargeIds) {
  EXPECT_EQ(handle(R"({"command":"scene_setting","id":30005,"name":"Big","action_list":[]})"),
            "{ \"code\": 0, \"msg\": \"\", \"id\": 30005 }");
  EXPECT_EQ(tunnelMessages(), (std::vector<std::string>{"addScene: id=30005", "addScene: name=Big",
                                                        "addScene: actions=[ ]"}));
  ASSERT_NE(storedScene(30005), nullptr);
  EXPECT_EQ(storedScene(30005)->launchJson(), "");
}

TEST_F(ZorvikTunnelTest, SceneUpdateStoresTheNewTexts) {
  manager_->addScene(0, "Night", "[ ]", "");
  log_.clear();
  EXPECT_EQ(handle(R"({"command":"scene_update","id":1,"name":"Morning",)"
                   R"("action_list":[{"thirdParty":"quiro","type":"t"}],"launch":{"timer":{}}})"),
            kSuccess);
  const std::string actions = "[ { \"thirdParty\": \"quiro\", \"type\": \"t\" } ]";
  EXPECT_EQ(tunnelMessages(), (std::vector<std::string>{"updateScene: id=1, name=Morning",
                                                        "updateScene: actions=" + actions,
                                                        "updateScene: launch={ \"timer\": { } }"}));
  EXPECT_EQ(storedScene(1)->name(), "Morning");
  EXPECT_EQ(storedScene(1)->actionsJson(), actions);
  EXPECT_EQ(storedScene(1)->launchJson(), "{ \"timer\": { } }");
}

// Each command reaches its own operation, logged as such; scene 1 exists, scene 9 does not.
TEST_F(ZorvikTunnelTest, EveryCommandReachesItsOperationWithItsLogLine) {
  manager_->addScene(0, "Night", "[ ]", "");
  struct Row {
    const char* parameter;
    std::vector<std::string> messages;
    std::string reply;
  };
  const Row rows[] = {
      {R"({"command":"get_single_scene_setting","id":1})",
       {"getSingleScene: id=1"},
       R"({ "code": 0, "msg": "", "scene": { "id": 1, "name": "Night", "action_list": [ ] } })"},
      {R"({"command":"get_single_scene_setting","id":"9abc"})", {"getSingleScene: id=9"}, kSuccess},
      {R"({"command":"get_multiple_scene_setting","start_id":2,"end_id":5})",
       {"getMultipleScene: startId=2, endId=5"},
       R"({ "code": 0, "msg": "", "scene_list": [ ] })"},
      {R"({"command":"scene_start","id":9})", {"startScene: id=9"}, kNotFound},
      {R"({"command":"scene_stop","id":9})", {"stopScene: id=9"}, kNotFound},
      {R"({"command":"scene_launch","id":9,"launch":{"leave_home":{"mac":"AA"}}})",
       {"setSceneLaunch: id=9, launch={ \"leave_home\": { \"mac\": \"AA\" } }"},
       kNotFound},
      {R"({"command":"scene_launch_delete","id":9})", {"removeSceneLaunch: id=9"}, kNotFound},
      {R"({"command":"scene_delete","id":9})", {"removeScene: id=9"}, kNotFound},
      {R"({"command":"scene_start_by_device_status","mac":"AA","connected":true})",
       {"startSceneByDeviceStatus: mac=AA, connected=1"},
       R"({ "code": 3506, "msg": "scene has not home launch mode" })"},
      {R"({"command":"scene_start_by_device_status","mac":"AA","connected":"false"})",
       {"startSceneByDeviceStatus: mac=AA, connected=1"},
       R"({ "code": 3506, "msg": "scene has not home launch mode" })"},
      {R"({"command":"scene_start_by_device_status","mac":"AA","connected":0})",
       {"startSceneByDeviceStatus: mac=AA, connected=0"},
       R"({ "code": 3506, "msg": "scene has not home launch mode" })"},
      {R"({"command":"is_scene_processing","id":1})",
       {"isSceneProcessing: id=1"},
       R"({ "code": 0, "msg": "", "processing": 0 })"},
      {R"({"command":"get_scene_count"})",
       {"get scenes count"},
       R"({ "code": 0, "msg": "", "count": 1 })"},
      {R"({"command":"scene_record_by_crontab"})", {"recordSceneByCrontab"}, kSuccess},
      {R"({"command":"get_scene_setting"})",
       {"get all scenes"},
       R"({ "code": 0, "msg": "", "scene_list": [ { "id": 1, "name": "Night", "action_list": [ ] } ] })"},
  };
  for (const Row& row : rows) {
    log_.clear();
    EXPECT_EQ(handle(row.parameter), row.reply) << row.parameter;
    EXPECT_EQ(tunnelMessages(), row.messages) << row.parameter;
  }
}

TEST_F(ZorvikTunnelTest, CrontabTickLogsItsOwnClock) {
  const std::time_t before = std::time(nullptr);
  EXPECT_EQ(handle(R"({"command":"scene_start_by_crontab","week":"3","time":"07:30"})"), kSuccess);
  const std::time_t after = std::time(nullptr);

  const std::vector<std::string> messages = tunnelMessages();
  ASSERT_EQ(messages.size(), 1u);
  const std::string head = "startSceneByCrontab: week=3, time=07:30, utc:";
  ASSERT_EQ(messages[0].rfind(head, 0), 0u) << messages[0];
  const long long logged = std::stoll(messages[0].substr(head.size()));
  EXPECT_GE(logged, before);
  EXPECT_LE(logged, after);
}

TEST_F(ZorvikTunnelTest, ResetScenesRemovesTheDatabaseButKeepsTheRegistry) {
  manager_->addScene(0, "Night", "[ ]", "");
  ASSERT_TRUE(std::filesystem::exists(store_->databasePath()));
  log_.clear();
  EXPECT_EQ(handle(R"({"command":"reset_scenes"})"), kSuccess);
  EXPECT_EQ(tunnelMessages(), std::vector<std::string>{"reset scenes"});
  EXPECT_FALSE(std::filesystem::exists(store_->databasePath()));
  EXPECT_EQ(handle(R"({"command":"get_scene_count"})"), R"({ "code": 0, "msg": "", "count": 1 })");
}

TEST_F(ZorvikTunnelTest, LogLinesCarryTheTunnelModuleAtInfoLevel) {
  handle(R"({"command":"get_scene_count"})");
  bool found = false;
  for (const CapturedLine& line : log_.lines()) {
    if (line.text.rfind(kTunnelPrefix, 0) != 0) continue;
    found = true;
    EXPECT_EQ(line.priority, 6);
    EXPECT_EQ(line.text.back(), '\n');
  }
  EXPECT_TRUE(found);
}

// Three RPC workers call the tunnel at once; run under ThreadSanitizer this also checks that
// the tunnel shares nothing between calls.
TEST_F(ZorvikTunnelTest, ConcurrentCallsEachGetTheirOwnReply) {
  manager_->addScene(0, "Night", "[ ]", "");
  std::vector<std::thread> workers;
  std::vector<int> wrong(3, 0);
  for (int worker = 0; worker < 3; ++worker) {
    workers.emplace_back([this, worker, &wrong] {
      for (int i = 0; i < 50; ++i) {
        if (handle(R"({"command":"get_scene_count"})") !=
            R"({ "code": 0, "msg": "", "count": 1 })") {
          ++wrong[worker];
        }
        if (handle("{\"command\":\"nope\"}") != kApiNotExists) ++wrong[worker];
        if (handle("{") != kFormatError) ++wrong[worker];
      }
    });
  }
  for (std::thread& worker : workers) worker.join();
  EXPECT_EQ(wrong, std::vector<int>(3, 0));
}

}  // namespace
}  // namespace zorvik
