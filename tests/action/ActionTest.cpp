#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include "action/Action.h"
#include "server/ResultCode.h"
#include "support/LogCapture.h"
#include "support/ShellRecorder.h"

namespace zorvik {
namespace {

std::shared_ptr<Action> makeAction(const std::string& thirdParty, const std::string& payload = "",
                                   uint32_t index = 0, int32_t delay = 0) {
  return std::make_shared<Action>(std::weak_ptr<Scene>(), index, thirdParty, "t", "n", "k", payload,
                                  delay, true, "", "");
}

bool somethingListensOn(int port) {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const bool connected = connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
  close(fd);
  return connected;
}

TEST(ActionTest, DelaysBelowOneWaitHalfASecondFirstAndATenthLater) {
  EXPECT_EQ(makeAction("x", "", 0, 0)->interval(), 500);
  EXPECT_EQ(makeAction("x", "", 1, 0)->interval(), 100);
  EXPECT_EQ(makeAction("x", "", 2, -5)->interval(), 100);
  EXPECT_EQ(makeAction("x", "", 0, -5)->interval(), 500);
  EXPECT_EQ(makeAction("x", "", 0, 1)->interval(), 1);
  EXPECT_EQ(makeAction("x", "", 3, 2500)->interval(), 2500);
}

TEST(ActionDispatchTest, UnknownWordsDoNothingSilently) {
  LogCapture log;
  ShellRecorder shell;
  EXPECT_EQ(makeAction("unknown")->dispatch(), 0u);
  EXPECT_EQ(makeAction("Quiro", "x")->dispatch(), 0u);
  EXPECT_TRUE(shell.lines().empty());
  EXPECT_TRUE(log.lines().empty());
}

TEST(ActionDispatchTest, RetiredSystemKindOnlyLogs) {
  LogCapture log;
  ShellRecorder shell;
  EXPECT_EQ(makeAction("system", "reboot")->dispatch(), 0u);
  EXPECT_TRUE(shell.lines().empty());
  auto lines = log.lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_NE(lines[0].text.find("ERROR Action.cpp:"), std::string::npos);
  EXPECT_EQ(LogCapture::messageOf(lines[0].text), "system vendor no longer support.");
}

TEST(ActionDispatchTest, BothTunnelKindsSendTheSameLine) {
  ShellRecorder shell;
  makeAction("quiro", R"({"a":1})")->dispatch();
  makeAction("lumdex", R"({"a":1})")->dispatch();
  EXPECT_EQ(shell.lines(), (std::vector<std::string>{"/usr/sbin/pellway 6 'eyJhIjoxfQ'",
                                                     "/usr/sbin/pellway 6 'eyJhIjoxfQ'"}));
}

TEST(ActionDispatchTest, BothTelevisionKindsReachTheTvHelper) {
  LogCapture log;
  makeAction("tevra", "not json")->dispatch();
  makeAction("tarwen", "not json")->dispatch();
  EXPECT_EQ(log.count("brelk TevraHelper extra is not json format"), 2);
}

TEST(ActionDispatchTest, RouterWordsRunTheirCommands) {
  ShellRecorder shell;
  makeAction("brelkrouter", R"({"command":"wifi_down"})")->dispatch();
  std::make_shared<Action>(std::weak_ptr<Scene>(), 0, "brelkrouter_group", "normal_wifi_down", "",
                           "", "", 0, true, "{}", "wifi_up")
      ->dispatch();
  makeAction("brelkrouter_reboot")->dispatch();
  EXPECT_EQ(shell.lines(),
            (std::vector<std::string>{"/sbin/wifi down", "/sbin/wifi", "reboot_safe.sh"}));
}

TEST(ActionDispatchTest, FailedHalvexCallAnswersHalvexReturnError) {
  if (somethingListensOn(9092)) GTEST_SKIP() << "a service listens on 9092 here";
  EXPECT_EQ(makeAction("halvex", R"({"x":1})")->dispatch(),
            static_cast<uint32_t>(kHalvexReturnError));
  EXPECT_EQ(makeAction("kelmora", R"({"x":1})")->dispatch(), 0u);
}

}  // namespace
}  // namespace zorvik
