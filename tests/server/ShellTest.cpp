// The real shell backend (quoting and the logged runs are in the transcripts' command lines).
#include <gtest/gtest.h>

#include "server/Shell.h"

namespace zorvik {
namespace {

TEST(ShellTest, RealBackendGivesResultsAndTheWholeOutputOfAQuotedWord) {
  // More output than one read takes; a quoted word that a shell would otherwise interpret.
  const std::string hostile = "x';echo injected;'$(echo sub)`echo back`\n\\";
  EXPECT_EQ(
      Shell::capture("printf %s " + Shell::quote(hostile) + "; head -c 300 /dev/zero | tr '\\0' x"),
      hostile + std::string(300, 'x'));
  EXPECT_EQ(Shell::system("true"), 0);
  EXPECT_NE(Shell::system("exit 3"), 0);
}

}  // namespace
}  // namespace zorvik
