#include <gtest/gtest.h>
#include <syslog.h>

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
  std::vector<std::string> received;  // a sink that is not thread-safe itself
  const LogSink previous =
      setLogSink([&](int, const std::string& text) { received.push_back(text); });
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 500; ++i) ZLOG(kLogInfo) << "thread " << i << " end";
    });
  }
  for (std::thread& thread : threads) thread.join();
  setLogSink(previous);
  ASSERT_EQ(received.size(), 2000u);
  for (const std::string& text : received) EXPECT_EQ(text.find(" end\n"), text.size() - 5) << text;
}

}  // namespace
}  // namespace zorvik
