#include "server/Shell.h"

#include <gtest/gtest.h>

#include "support/LogCapture.h"
#include "support/ShellRecorder.h"
#include "support/TempDir.h"

namespace zorvik {
namespace {

TEST(ShellTest, QuoteKeepsBenignTextAndNeutralisesQuotes) {
  EXPECT_EQ(Shell::quote("{\"a\":1}"), "'{\"a\":1}'");
  EXPECT_EQ(Shell::quote(""), "''");
  EXPECT_EQ(Shell::quote("it's"), "'it'\\''s'");
}

TEST(ShellTest, QuotedHostileTextReachesTheProgramUnchanged) {
  TempDir dir;
  const std::string marker = dir.file("pwned");
  const std::string hostile = "x';touch " + marker + ";echo '$(id)`id`";
  auto output = Shell::capture("printf %s " + Shell::quote(hostile));
  ASSERT_TRUE(output.has_value());
  EXPECT_EQ(*output, hostile);
  EXPECT_FALSE(std::filesystem::exists(marker));
}

TEST(ShellTest, RealBackendRunsAndCaptures) {
  EXPECT_EQ(Shell::system("true"), 0);
  EXPECT_NE(Shell::system("false"), 0);
  auto output = Shell::capture("printf 'a\\nb'; head -c 300 /dev/zero | tr '\\0' x");
  ASSERT_TRUE(output.has_value());
  EXPECT_EQ(*output, "a\nb" + std::string(300, 'x'));
}

TEST(ShellTest, RunLoggedLogsTheCommandAndFailures) {
  LogCapture capture;
  ShellRecorder recorder;
  recorder.setResult("/bin/fail", 256);
  EXPECT_EQ(Shell::runLogged("Action.cpp", 12, kLogError, "/bin/ok arg"), 0);
  EXPECT_EQ(Shell::runLogged("Scene.cpp", 34, kLogInfo, "/bin/fail"), 256);
  EXPECT_EQ(recorder.lines(), (std::vector<std::string>{"/bin/ok arg", "/bin/fail"}));
  auto lines = capture.lines();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0].text, "[ZORVIK ERROR Action.cpp:12]system command: /bin/ok arg\n");
  EXPECT_EQ(lines[1].text, "[ZORVIK INFO Scene.cpp:34]system command: /bin/fail\n");
  EXPECT_EQ(lines[2].text, "[ZORVIK ERROR Scene.cpp:34]system call error\n");
}

}  // namespace
}  // namespace zorvik
