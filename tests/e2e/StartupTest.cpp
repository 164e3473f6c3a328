#include <gtest/gtest.h>

#include <cerrno>
#include <regex>
#include <string>

#include "DaemonFixture.h"

namespace zorvik {
namespace {

using std::chrono::milliseconds;

using DaemonStartupTest = DaemonFixture;

TEST_F(DaemonStartupTest, PrintsItsTwoLinesAndNothingElse) {
  EXPECT_EQ(sandbox().daemonOutput(kDaemon),
            "argc is 1, argv is NULL? 0\nrun server accept all connections.\n");
  EXPECT_EQ(sandbox().daemonErrors(kDaemon), "");
}

TEST_F(DaemonStartupTest, ListensOnLoopbackOnly) {
  EXPECT_EQ(sandbox().connectTo("192.168.31.1", kServicePort), -1);
  EXPECT_EQ(errno, ECONNREFUSED);
  EXPECT_EQ(request(kCountRequest), kNoScenesReply);
}

TEST_F(DaemonStartupTest, SecondDaemonOnATakenPortEndsWithAMessage) {
  sandbox().startDaemon("second");
  const std::optional<int> status = sandbox().waitForExit("second", kStartTimeout);
  ASSERT_TRUE(status) << "the second daemon did not end";
  EXPECT_EQ(*status, 1);
  EXPECT_EQ(sandbox().daemonErrors("second").rfind("zorvik: cannot serve on 127.0.0.1:9096: ", 0),
            0u)
      << sandbox().daemonErrors("second");
  EXPECT_EQ(sandbox().daemonOutput("second"),
            "argc is 1, argv is NULL? 0\nrun server accept all connections.\n");
  expectStillServing();
}

TEST_F(DaemonStartupTest, LogLinesReachTheSystemLog) {
  EXPECT_EQ(request(kCountRequest), kNoScenesReply);
  ASSERT_TRUE(sandbox().syslog().waitFor("]get scenes count", milliseconds(5000)));
  const std::regex tunnelLine(R"(<14>\w{3} [ \d]\d \d\d:\d\d:\d\d zorvik\[\d+\]: )"
                              R"(\[ZORVIK INFO ZorvikTunnel\.cpp:\d+\]get scenes count\n)");
  int matching = 0;
  for (const std::string& line : sandbox().syslog().lines()) {
    matching += std::regex_match(line, tunnelLine) ? 1 : 0;
  }
  EXPECT_EQ(matching, 1);
  // Lines logged at start-up, before any request, arrived as well.
  EXPECT_EQ(sandbox().syslog().count("]Create Database folder at: /etc/zorvik/\n"), 1);
}

TEST_F(DaemonStartupTest, ZorvikctlTalksToTheDaemon) {
  std::string output;
  EXPECT_EQ(sandbox().runInNetwork({ZORVIKCTL_BINARY, "count"}, output), 0);
  EXPECT_EQ(output, std::string(kNoScenesReply) + "\n");

  EXPECT_EQ(sandbox().runInNetwork({ZORVIKCTL_BINARY, R"({"command":"scene_stat"})"}, output), 1);
  EXPECT_NE(output.find("{ \"code\": -1, \"msg\": \"api not exists\" }\n"), std::string::npos);
  EXPECT_NE(output.find("zorvikctl: the daemon answered code -1"), std::string::npos);

  // A word that is no shortcut goes out as the request itself.
  EXPECT_EQ(sandbox().runInNetwork({ZORVIKCTL_BINARY, "lst"}, output), 1);
  EXPECT_NE(output.find("{ \"code\": 3, \"msg\": \"parameter format error\" }\n"),
            std::string::npos);

  EXPECT_EQ(sandbox().runInNetwork({ZORVIKCTL_BINARY, "get", "seven"}, output), 2);
  EXPECT_NE(output.find("not a scene id: seven"), std::string::npos);

  sandbox().stopDaemon(kDaemon);
  EXPECT_EQ(sandbox().runInNetwork({ZORVIKCTL_BINARY, "count"}, output), 3);
  EXPECT_NE(output.find("is it running?"), std::string::npos) << output;
}

}  // namespace
}  // namespace zorvik
