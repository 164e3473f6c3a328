#include <gtest/gtest.h>
#include <syslog.h>

#include <sstream>
#include <thread>

#include "server/Log.h"
#include "support/LogCapture.h"

namespace zorvik {
namespace {

TEST(LogTest, LinesCarryTagLevelFileLineAndTheTextAsGiven) {
  LogCapture capture;
  // The level and text given, the priority and the whole line handed to the sink.
  const std::tuple<int, const char*, int, const char*> rows[] = {
      {kLogInfo, "get all scenes", LOG_INFO, "[ZORVIK INFO ZorvikTunnel.cpp:106]get all scenes\n"},
      {kLogDebug, "d", LOG_DEBUG, "[ZORVIK DEBUG ZorvikTunnel.cpp:106]d\n"},
      {kLogError, "%s %n", LOG_ERR, "[ZORVIK ERROR ZorvikTunnel.cpp:106]%s %n\n"},
      {5, "", LOG_ERR, "[ZORVIK ERROR ZorvikTunnel.cpp:106]\n"},
      {-1, "minus", LOG_INFO, "[ZORVIK INFO ZorvikTunnel.cpp:106]minus\n"}};
  for (const auto& [level, text, priority, line] : rows) {
    capture.clear();
    LogMessage("ZorvikTunnel.cpp", 106, level).stream() << text;
    ASSERT_EQ(capture.lines().size(), 1u);
    EXPECT_EQ(capture.lines()[0].text, line);
    EXPECT_EQ(capture.lines()[0].priority, priority) << line;
  }
}

TEST(LogTest, LinesOfDifferentThreadsNeverMix) {
  std::string received;  // taken a character at a time: overlapping calls would mix their lines
  const LogSink previous = setLogSink([&](int, const std::string& text) {
    for (char c : text) {
      received += c;
      std::this_thread::yield();
    }
  });
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 500; ++i) ZLOG(kLogInfo) << "thread " << i << " end";
    });
  }
  for (std::thread& thread : threads) thread.join();
  setLogSink(previous);
  std::istringstream lines(received);
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    ASSERT_TRUE(line.rfind('[') == 0 && line.find(" end") == line.size() - 4) << line;
  }
  EXPECT_EQ(count, 2000);
}

}  // namespace
}  // namespace zorvik
