#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "DaemonFixture.h"

namespace zorvik {
namespace {

using std::chrono::milliseconds;

const milliseconds kRunTimeout(15000);

// Blocks a device's internet at once (the first action waits 500 ms), switches a lamp through
// the device tunnel a second after that, then the Wi-Fi off a tenth of a second later.
// Started by the phone AA:BB:CC:DD:EE:01 coming home.
const char kEveningRequest[] =
    R"({"command":"scene_setting","name":"Evening","action_list":[)"
    R"({"thirdParty":"brelkrouter","type":"router","name":"Block","keyName":"wan",)"
    R"("payload":{"command":"wan_block","mac":"AA:BB:CC:DD:EE:FF"}},)"
    R"({"thirdParty":"quiro","type":"light","name":"Lamp","keyName":"on","delay":1000,)"
    R"("payload":"{\"a\":1}"},)"
    R"({"thirdParty":"brelkrouter","type":"router","name":"Wifi","keyName":"down",)"
    R"("payload":{"command":"wifi_down"}}],)"
    R"("launch":{"go_home":{"mac":"AA:BB:CC:DD:EE:01"}}})";

const std::vector<std::string> kEveningCommands = {
    "/usr/sbin/teldra macfilter set mac=AA:BB:CC:DD:EE:FF wan=no",
    "/usr/sbin/teldra macfilter commit",
    "/usr/sbin/pellway 6 eyJhIjoxfQ",
    R"(/usr/sbin/vantpost { "type": 5, "data": { "name": "Evening", "list": [ )"
    R"({ "name": "Block", "keyName": "wan" } ] } })",
    "/sbin/wifi down",
};

// The calls after the daemon's start-up (which asks nvram for the model).
std::vector<StubCall> sceneCalls(const Sandbox& sandbox) {
  std::vector<StubCall> calls;
  for (const StubCall& call : sandbox.calls()) {
    if (call.command.rfind("/usr/sbin/nvram", 0) != 0) calls.push_back(call);
  }
  return calls;
}

std::vector<std::string> commandsOf(const std::vector<StubCall>& calls) {
  std::vector<std::string> commands;
  for (const StubCall& call : calls) commands.push_back(call.command);
  return commands;
}

double secondsSinceEpoch() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

using DaemonSceneRunTest = DaemonFixture;

TEST_F(DaemonSceneRunTest, RunDrivesTheRouterInOrderAndReportsToTheFeed) {
  ASSERT_EQ(request(kEveningRequest), R"({ "code": 0, "msg": "", "id": 1 })");
  const double started = secondsSinceEpoch();
  ASSERT_EQ(request(R"({"command":"scene_start","id":1})"), kSuccessReply);
  ASSERT_TRUE(sandbox().waitForCalls("/sbin/wifi down", 1, kRunTimeout))
      << sandbox().describeCalls();

  const std::vector<StubCall> calls = sceneCalls(sandbox());
  ASSERT_EQ(commandsOf(calls), kEveningCommands) << sandbox().describeCalls();
  // First action: 500 ms after the start. Lamp: 1 s after the block. Wi-Fi: 100 ms after the
  // lamp, the feed report (made when the last action's turn comes) just before it.
  EXPECT_GE(calls[0].at - started, 0.45);
  EXPECT_LE(calls[0].at - started, 5.0);
  EXPECT_GE(calls[2].at - calls[0].at, 0.95);
  EXPECT_LE(calls[2].at - calls[0].at, 5.0);
  EXPECT_GE(calls[4].at - calls[2].at, 0.09);
  EXPECT_LE(calls[4].at - calls[2].at, 5.0);

  // The run is over once the feed has been told.
  EXPECT_EQ(request(R"({"command":"is_scene_processing","id":1})"),
            R"({ "code": 0, "msg": "", "processing": 0 })");
}

TEST_F(DaemonSceneRunTest, HomecomingStartsTheSceneOfThatPhone) {
  ASSERT_EQ(request(kEveningRequest), R"({ "code": 0, "msg": "", "id": 1 })");
  EXPECT_EQ(request(R"({"command":"scene_start_by_device_status","mac":"aa:bb:cc:dd:ee:01",)"
                    R"("connected":true})"),
            kSuccessReply);
  ASSERT_TRUE(sandbox().waitForCalls("/sbin/wifi down", 1, kRunTimeout))
      << sandbox().describeCalls();
  EXPECT_EQ(commandsOf(sceneCalls(sandbox())), kEveningCommands);
}

// The TV of the sandbox's LAN is 192.168.31.23, known from the ARP table by its MAC address.
TEST_F(DaemonSceneRunTest, TvActionFindsTheTvThroughTheArpTable) {
  ASSERT_EQ(request(R"({"command":"scene_setting","name":"Film","action_list":[)"
                    R"({"thirdParty":"tevra","type":"tv","payload":)"
                    R"({"mac":"AA:BB:CC:DD:EE:FF","command":"poweroff"}}]})"),
            R"({ "code": 0, "msg": "", "id": 1 })");
  ASSERT_EQ(request(R"({"command":"scene_start","id":1})"), kSuccessReply);
  ASSERT_TRUE(sandbox().waitForCalls("/usr/bin/curl", 1, kRunTimeout)) << sandbox().describeCalls();
  EXPECT_EQ(commandsOf(sceneCalls(sandbox())),
            std::vector<std::string>{"/usr/bin/curl -s -k --connect-timeout 10 "
                                     "http://192.168.31.23/cgi-bin/powerctrl.cgi?off=1"});
}

TEST_F(DaemonSceneRunTest, ScenesSurviveARestart) {
  ASSERT_EQ(request(kEveningRequest), R"({ "code": 0, "msg": "", "id": 1 })");
  ASSERT_EQ(request(R"({"command":"scene_setting","name":"Quiet","action_list":[]})"),
            R"({ "code": 0, "msg": "", "id": 2 })");
  ASSERT_EQ(request(R"({"command":"scene_launch","id":2,"launch":{"leave_home":{"mac":"AB"}}})"),
            kSuccessReply);
  const std::string before = request(R"({"command":"get_scene_setting"})");

  restartDaemon(kDaemon, "restarted");
  EXPECT_EQ(request(R"({"command":"get_scene_setting"})"), before);
  EXPECT_EQ(request(R"({"command":"scene_setting","name":"Next","action_list":[]})"),
            R"({ "code": 0, "msg": "", "id": 3 })");
}

TEST_F(DaemonSceneRunTest, ResetForgetsTheStoredScenesAtTheNextStart) {
  ASSERT_EQ(request(kEveningRequest), R"({ "code": 0, "msg": "", "id": 1 })");
  ASSERT_TRUE(std::filesystem::exists(sandbox().dataFile("SmartTask.db")));

  EXPECT_EQ(request(R"({"command":"reset_scenes"})"), kSuccessReply);
  EXPECT_FALSE(std::filesystem::exists(sandbox().dataFile("SmartTask.db")));
  // The running daemon keeps its registry until it restarts.
  EXPECT_EQ(request(kCountRequest), R"({ "code": 0, "msg": "", "count": 1 })");

  restartDaemon(kDaemon, "restarted");
  EXPECT_EQ(request(kCountRequest), kNoScenesReply);
  EXPECT_TRUE(std::filesystem::exists(sandbox().dataFile("SmartTask.db")));
}

}  // namespace
}  // namespace zorvik
