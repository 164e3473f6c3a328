#include "server/Log.h"

#include <gtest/gtest.h>
#include <syslog.h>

#include "support/LogCapture.h"

namespace zorvik {
namespace {

TEST(LogTest, LineHasTagLevelFileLineAndText) {
  LogCapture capture;
  LogMessage("ZorvikTunnel.cpp", 106, kLogInfo).stream() << "get all scenes";
  auto lines = capture.lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].text, "[ZORVIK INFO ZorvikTunnel.cpp:106]get all scenes\n");
  EXPECT_EQ(lines[0].priority, LOG_INFO);
}

TEST(LogTest, LevelsMapToWordsAndPriorities) {
  LogCapture capture;
  LogMessage("A.cpp", 1, kLogDebug).stream() << "d";
  LogMessage("A.cpp", 2, kLogError).stream() << "e";
  LogMessage("A.cpp", 3, 5).stream() << "five";
  LogMessage("A.cpp", 4, -1).stream() << "minus";
  auto lines = capture.lines();
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[0].text, "[ZORVIK DEBUG A.cpp:1]d\n");
  EXPECT_EQ(lines[0].priority, LOG_DEBUG);
  EXPECT_EQ(lines[1].text, "[ZORVIK ERROR A.cpp:2]e\n");
  EXPECT_EQ(lines[1].priority, LOG_ERR);
  EXPECT_EQ(lines[2].text, "[ZORVIK ERROR A.cpp:3]five\n");
  EXPECT_EQ(lines[2].priority, LOG_ERR);
  EXPECT_EQ(lines[3].text, "[ZORVIK INFO A.cpp:4]minus\n");
  EXPECT_EQ(lines[3].priority, LOG_INFO);
}

TEST(LogTest, PercentSequencesAndEmptyMessagesAreKeptLiterally) {
  LogCapture capture;
  LogMessage("A.cpp", 7, kLogInfo).stream() << "%s %d %n";
  LogMessage("A.cpp", 8, kLogInfo).stream();
  auto lines = capture.lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].text, "[ZORVIK INFO A.cpp:7]%s %d %n\n");
  EXPECT_EQ(lines[1].text, "[ZORVIK INFO A.cpp:8]\n");
}

TEST(LogTest, MacroFillsThisFileAndLine) {
  LogCapture capture;
  const int line = __LINE__ + 1;
  ZLOG(kLogInfo) << "value=" << 42;
  auto lines = capture.lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].text, "[ZORVIK INFO LogTest.cpp:" + std::to_string(line) + "]value=42\n");
}

}  // namespace
}  // namespace zorvik
