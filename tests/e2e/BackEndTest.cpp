#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "DaemonFixture.h"
#include "HalvexServ.h"
#include "Kelmora.h"
#include "support/ScriptedService.h"

namespace zorvik {
namespace {

using std::chrono::milliseconds;

const milliseconds kRunTimeout(15000);

struct Halvex {
  using If = HalvexServIf;
  using Processor = HalvexServProcessor;
};

struct Kelmora {
  using If = kelmora::KelmoraIf;
  using Processor = kelmora::KelmoraProcessor;
};

// Waits until `done` holds; false after the run time-out.
template <typename Condition>
bool waitFor(Condition done) {
  const auto deadline = std::chrono::steady_clock::now() + kRunTimeout;
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(milliseconds(20));
  }
  return true;
}

// The calls the scene made (the daemon's start-up asks nvram for the model first).
std::vector<StubCall> sceneCalls(const Sandbox& sandbox) {
  std::vector<StubCall> calls;
  for (const StubCall& call : sandbox.calls()) {
    if (call.command.rfind("/usr/sbin/nvram", 0) != 0) calls.push_back(call);
  }
  return calls;
}

using DaemonBackEndTest = DaemonFixture;

TEST_F(DaemonBackEndTest, SiblingServicesReceiveTheActionPayloads) {
  // The services listen on the sandbox's own loopback, where the daemon looks for them.
  const auto inSandbox = [this] { sandbox().enterNetwork(); };
  ScriptedService<Halvex> halvex(R"({"code":0})", 9092, inSandbox);
  ScriptedService<Kelmora> kelmora(R"({"code":7})", 9090, inSandbox);
  ASSERT_EQ(request(R"({"command":"scene_setting","name":"Cinema","action_list":[)"
                    R"({"thirdParty":"halvex","type":"ir","payload":"{\"ir\":\"tv_on\"}"},)"
                    R"({"thirdParty":"kelmora","type":"light","payload":{"light":1}}]})"),
            R"({ "code": 0, "msg": "", "id": 1 })");
  ASSERT_EQ(request(R"({"command":"scene_start","id":1})"), kSuccessReply);
  ASSERT_TRUE(waitFor([&] { return !kelmora.received().empty(); }));
  EXPECT_EQ(halvex.received(), std::vector<std::string>{R"({"ir":"tv_on"})"});
  // An object payload travels in json-c's text form.
  EXPECT_EQ(kelmora.received(), std::vector<std::string>{R"({ "light": 1 })"});
  EXPECT_TRUE(waitFor([&] {
    return request(R"({"command":"is_scene_processing","id":1})") ==
           R"({ "code": 0, "msg": "", "processing": 0 })";
  }));
}

TEST_F(DaemonBackEndTest, RouterSpecialTypesSwitchWifiShutDownAndReboot) {
  ASSERT_EQ(request(R"({"command":"scene_setting","name":"Night","action_list":[)"
                    R"({"thirdParty":"brelkrouter","type":"normal_wifi_down",)"
                    R"("extra":{"duration":3000}},)"
                    R"({"thirdParty":"brelkrouter","type":"normal_shutdown",)"
                    R"("extra":{"duration":120000}},)"
                    R"({"thirdParty":"brelkrouter","type":"normal_reboot"}]})"),
            R"({ "code": 0, "msg": "", "id": 1 })");
  ASSERT_EQ(request(R"({"command":"scene_start","id":1})"), kSuccessReply);
  ASSERT_TRUE(sandbox().waitForCalls("/sbin/wifi", 2, kRunTimeout)) << sandbox().describeCalls();
  const std::vector<StubCall> calls = sceneCalls(sandbox());
  ASSERT_EQ(calls.size(), 4u) << sandbox().describeCalls();
  // The Wi-Fi comes back three seconds after it went down; the shutdown and the reboot follow
  // the Wi-Fi switch-off without waiting for it.
  EXPECT_EQ(calls[0].command, "/sbin/wifi down");
  EXPECT_EQ(calls[1].command, "/usr/sbin/qumbe 2 2");
  EXPECT_NE(calls[2].command.find("reboot_safe.sh"), std::string::npos) << calls[2].command;
  EXPECT_EQ(calls[3].command, "/sbin/wifi");
  EXPECT_GE(calls[3].at - calls[0].at, 2.9);
}

TEST_F(DaemonBackEndTest, WanBlockIsLiftedAfterItsDuration) {
  ASSERT_EQ(request(R"({"command":"scene_setting","name":"Homework","action_list":[)"
                    R"({"thirdParty":"brelkrouter","type":"normal_wan_forbidden",)"
                    R"("extra":{"duration":1000,"mac":"AA:BB:CC:DD:EE:02"}}]})"),
            R"({ "code": 0, "msg": "", "id": 1 })");
  ASSERT_EQ(request(R"({"command":"scene_start","id":1})"), kSuccessReply);
  ASSERT_TRUE(sandbox().waitForCalls("/usr/sbin/teldra macfilter commit", 2, kRunTimeout))
      << sandbox().describeCalls();
  const std::vector<StubCall> calls = sceneCalls(sandbox());
  ASSERT_EQ(calls.size(), 4u) << sandbox().describeCalls();
  EXPECT_EQ(calls[0].command, "/usr/sbin/teldra macfilter set mac=AA:BB:CC:DD:EE:02 wan=no");
  EXPECT_EQ(calls[2].command, "/usr/sbin/teldra macfilter set mac=AA:BB:CC:DD:EE:02 wan=yes");
  EXPECT_GE(calls[2].at - calls[0].at, 0.95);
}

TEST_F(DaemonBackEndTest, HostileMacRunsNoCommand) {
  ASSERT_EQ(request(R"({"command":"scene_setting","name":"Bad","action_list":[)"
                    R"({"thirdParty":"brelkrouter","type":"router","payload":)"
                    R"({"command":"wan_block","mac":"x;touch /tmp/pwned"}},)"
                    R"({"thirdParty":"quiro","type":"light","payload":"ok"}]})"),
            R"({ "code": 0, "msg": "", "id": 1 })");
  ASSERT_EQ(request(R"({"command":"scene_start","id":1})"), kSuccessReply);
  ASSERT_TRUE(sandbox().waitForCalls("/usr/sbin/pellway", 1, kRunTimeout))
      << sandbox().describeCalls();
  const std::vector<StubCall> calls = sceneCalls(sandbox());
  ASSERT_EQ(calls.size(), 1u) << sandbox().describeCalls();
  EXPECT_EQ(calls[0].command, "/usr/sbin/pellway 6 b2s");
  EXPECT_FALSE(std::filesystem::exists(sandbox().stateFile("tmp/pwned")));
}

}  // namespace
}  // namespace zorvik
