#include <gtest/gtest.h>

#include "server/Shell.h"

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

}  // namespace
}  // namespace zorvik
