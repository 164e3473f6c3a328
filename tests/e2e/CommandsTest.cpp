#include <gtest/gtest.h>

#include <string>

#include "DaemonFixture.h"

namespace zorvik {
namespace {

const char kNotFound[] = R"({ "code": 3502, "msg": "scene not found" })";
const char kProcessing[] = R"({ "code": 3505, "msg": "scene is processing" })";
const char kNoHomeLaunch[] = R"({ "code": 3506, "msg": "scene has not home launch mode" })";
const char kDatabaseFailed[] = R"({ "code": 3501, "msg": "update database failed" })";

// Scene 1: one lamp action five seconds after its start, started when a phone comes home.
const char kNightRequest[] =
    R"({"command":"scene_setting","name":"Night","action_list":[{"thirdParty":"quiro",)"
    R"("type":"light","name":"Lamp","keyName":"on","delay":5000,"payload":"on"}],)"
    R"("launch":{"go_home":{"mac":"AA:BB:CC:DD:EE:01"}}})";
const char kNightJson[] =
    R"({ "id": 1, "name": "Night", "action_list": [ { "thirdParty": "quiro", "type": "light", )"
    R"("name": "Lamp", "keyName": "on", "delay": 5000, "payload": "on" } ], )"
    R"("launch": { "go_home": { "mac": "AA:BB:CC:DD:EE:01" } } })";
// Scene 2: Wi-Fi off, no launch mode.
const char kMorningRequest[] =
    R"({"command":"scene_setting","name":"Morning","action_list":[{"thirdParty":)"
    R"("brelkrouter","type":"router","payload":{"command":"wifi_down"}}]})";
const char kMorningJson[] =
    R"({ "id": 2, "name": "Morning", "action_list": [ { "thirdParty": "brelkrouter", )"
    R"("type": "router", "payload": { "command": "wifi_down" } } ] })";

std::string withCode0(const std::string& member) {
  return R"({ "code": 0, "msg": "", )" + member + " }";
}

using DaemonCommandsTest = DaemonFixture;

TEST_F(DaemonCommandsTest, MalformedRequestsAreAnsweredExactly) {
  const std::pair<const char*, const char*> cases[] = {
      {"", kFormatErrorReply},
      {"not json", kFormatErrorReply},
      {"null", kFormatErrorReply},
      {"[1,2]", kFormatErrorReply},
      {"{}", kFormatErrorReply},
      {R"({"command":null})", kFormatErrorReply},
      {R"({"command":"scene_stat"})", kApiNotExistsReply},
      {R"({"command":7})", kApiNotExistsReply},
      {R"({"command":"scene_start"})", kFormatErrorReply},
      {R"({"command":"scene_setting","name":"","action_list":[]})", kFormatErrorReply},
      {R"({"command":"scene_setting","name":"N","action_list":{"a":1}})", kFormatErrorReply},
      {R"({"command":"scene_start_by_device_status","mac":"","connected":true})",
       kFormatErrorReply},
      {R"({"command":"scene_start_by_crontab","week":1,"time":""})", kFormatErrorReply},
  };
  for (const auto& [parameter, reply] : cases) EXPECT_EQ(request(parameter), reply) << parameter;
  EXPECT_EQ(request(kCountRequest), withCode0(R"("count": 0)"));
}

TEST_F(DaemonCommandsTest, ScenesAreAddedListedChangedAndDeleted) {
  EXPECT_EQ(request(kNightRequest), withCode0(R"("id": 1)"));
  EXPECT_EQ(request(kMorningRequest), withCode0(R"("id": 2)"));
  EXPECT_EQ(request(R"({"command":"scene_setting","id":30010,"name":"Big","action_list":[]})"),
            withCode0(R"("id": 30010)"));
  // Once an id above the automatic range exists, automatic ids are exhausted.
  EXPECT_EQ(request(R"({"command":"scene_setting","name":"Late","action_list":[]})"),
            kDatabaseFailed);

  const std::string bigJson = R"({ "id": 30010, "name": "Big", "action_list": [ ] })";
  EXPECT_EQ(request(R"({"command":"get_scene_setting"})"),
            withCode0(std::string(R"("scene_list": [ )") + kNightJson + ", " + kMorningJson + ", " +
                      bigJson + " ]"));
  EXPECT_EQ(request(R"({"command":"get_single_scene_setting","id":2})"),
            withCode0(std::string(R"("scene": )") + kMorningJson));
  EXPECT_EQ(request(R"({"command":"get_single_scene_setting","id":99})"), kSuccessReply);
  EXPECT_EQ(request(R"({"command":"get_multiple_scene_setting","start_id":2,"end_id":30010})"),
            withCode0(std::string(R"("scene_list": [ )") + kMorningJson + ", " + bigJson + " ]"));
  EXPECT_EQ(request(kCountRequest), withCode0(R"("count": 3)"));

  EXPECT_EQ(request(R"({"command":"scene_update","id":2,"name":"Dawn","action_list":[],)"
                    R"("launch":{"leave_home":{"mac":"AA:BB:CC:DD:EE:02"}}})"),
            kSuccessReply);
  const std::string dawnJson = R"({ "id": 2, "name": "Dawn", "action_list": [ ], )"
                               R"("launch": { "leave_home": { "mac": "AA:BB:CC:DD:EE:02" } } })";
  EXPECT_EQ(request(R"({"command":"get_single_scene_setting","id":2})"),
            withCode0(R"("scene": )" + dawnJson));
  EXPECT_EQ(request(R"({"command":"scene_update","id":99,"name":"X","action_list":[]})"),
            kNotFound);

  EXPECT_EQ(request(R"({"command":"scene_launch_delete","id":2})"), kSuccessReply);
  EXPECT_EQ(request(R"({"command":"get_single_scene_setting","id":2})"),
            withCode0(R"("scene": { "id": 2, "name": "Dawn", "action_list": [ ] })"));
  EXPECT_EQ(request(R"({"command":"scene_launch","id":2,"launch":{"go_home":{"mac":"AB"}}})"),
            kSuccessReply);
  EXPECT_EQ(request(R"({"command":"get_single_scene_setting","id":2})"),
            withCode0(R"("scene": { "id": 2, "name": "Dawn", "action_list": [ ], )"
                      R"("launch": { "go_home": { "mac": "AB" } } })"));
  EXPECT_EQ(request(R"({"command":"scene_launch","id":99,"launch":{"timer":{}}})"), kNotFound);
  EXPECT_EQ(request(R"({"command":"scene_launch_delete","id":99})"), kNotFound);

  EXPECT_EQ(request(R"({"command":"scene_delete","id":30010})"), kSuccessReply);
  EXPECT_EQ(request(R"({"command":"scene_delete","id":30010})"), kNotFound);
  EXPECT_EQ(request(kCountRequest), withCode0(R"("count": 2)"));
}

TEST_F(DaemonCommandsTest, ScenesAreStartedStoppedAndTriggered) {
  ASSERT_EQ(request(kNightRequest), withCode0(R"("id": 1)"));
  ASSERT_EQ(request(kMorningRequest), withCode0(R"("id": 2)"));

  EXPECT_EQ(request(R"({"command":"is_scene_processing","id":1})"),
            withCode0(R"("processing": 0)"));
  EXPECT_EQ(request(R"({"command":"scene_start","id":1})"), kSuccessReply);
  EXPECT_EQ(request(R"({"command":"scene_start","id":1})"), kProcessing);
  EXPECT_EQ(request(R"({"command":"is_scene_processing","id":1})"),
            withCode0(R"("processing": 1)"));
  EXPECT_EQ(request(R"({"command":"scene_stop","id":1})"), kSuccessReply);
  EXPECT_EQ(request(R"({"command":"is_scene_processing","id":1})"),
            withCode0(R"("processing": 0)"));
  EXPECT_EQ(request(R"({"command":"scene_start","id":99})"), kNotFound);
  EXPECT_EQ(request(R"({"command":"scene_stop","id":99})"), kNotFound);
  EXPECT_EQ(request(R"({"command":"is_scene_processing","id":99})"), kNotFound);

  // The phone of scene 1 leaves: nothing reacts. It comes home (MAC in lower case): scene 1 runs.
  EXPECT_EQ(request(R"({"command":"scene_start_by_device_status","mac":"aa:bb:cc:dd:ee:01",)"
                    R"("connected":false})"),
            kNoHomeLaunch);
  EXPECT_EQ(request(R"({"command":"scene_start_by_device_status","mac":"aa:bb:cc:dd:ee:01",)"
                    R"("connected":true})"),
            kSuccessReply);
  EXPECT_EQ(request(R"({"command":"is_scene_processing","id":1})"),
            withCode0(R"("processing": 1)"));
  EXPECT_EQ(request(R"({"command":"scene_stop","id":1})"), kSuccessReply);

  EXPECT_EQ(request(R"({"command":"scene_start_by_crontab","week":1,"time":"07:30"})"),
            kSuccessReply);
  // A scene without a timer launch still counts as enabled in the status record.
  EXPECT_EQ(request(R"({"command":"scene_record_by_crontab"})"), kSuccessReply);
  EXPECT_TRUE(sandbox().waitForCalls("/usr/bin/logger stat_points_none zorvik_scene_status=1:1|2:1",
                                     1, std::chrono::milliseconds(5000)))
      << sandbox().describeCalls();
}

}  // namespace
}  // namespace zorvik
