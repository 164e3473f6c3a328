#include <gtest/gtest.h>

#include "server/Shell.h"
#include "support/LogCapture.h"
#include "support/ShellRecorder.h"

namespace zorvik {
namespace {

TEST(ShellTest, QuotedTextIsOneWordAndTheRealBackendGivesResultsAndWholeOutput) {
  const std::pair<std::string, std::string> rows[] = {
      {"{\"a\":1}", "'{\"a\":1}'"}, {"", "''"}, {"it's", "'it'\\''s'"}, {"''", "''\\'''\\'''"}};
  for (const auto& [text, quoted] : rows) EXPECT_EQ(Shell::quote(text), quoted);
  // Through a real shell, with more output than one read takes.
  const std::string hostile = "x';echo injected;'$(echo sub)`echo back`\n\\";
  EXPECT_EQ(
      Shell::capture("printf %s " + Shell::quote(hostile) + "; head -c 300 /dev/zero | tr '\\0' x"),
      hostile + std::string(300, 'x'));
  EXPECT_EQ(Shell::system("true"), 0);
  EXPECT_NE(Shell::system("exit 3"), 0);
}

TEST(ShellTest, RunLoggedLogsTheCommandAndAFailure) {
  LogCapture capture;
  ShellRecorder recorder;
  recorder.setResult("/bin/fail", 256);
  EXPECT_EQ(Shell::runLogged("Scene.cpp", 34, kLogInfo, "/bin/fail"), 256);
  EXPECT_EQ(recorder.lines(), std::vector<std::string>{"/bin/fail"});
  ASSERT_EQ(capture.lines().size(), 2u);
  EXPECT_EQ(capture.lines()[0].text, "[ZORVIK INFO Scene.cpp:34]system command: /bin/fail\n");
  EXPECT_EQ(capture.lines()[1].text, "[ZORVIK ERROR Scene.cpp:34]system call error\n");
}

}  // namespace
}  // namespace zorvik
