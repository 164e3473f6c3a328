#include <gtest/gtest.h>

#include <fstream>

#include "action/RouterCommand.h"
#include "support/LogCapture.h"
#include "support/ShellRecorder.h"

namespace zorvik {
namespace {

// The back ends log as "Action.cpp" with the number of the statement that wrote the line, in the
// back end's own file; a failing command's error line carries the same number.
TEST(ActionLogTest, LinesCarryTheNumberOfTheirStatement) {
  LogCapture log;
  ShellRecorder shell;
  shell.setResult("reboot_safe.sh", 256);
  RouterCommand::doRouterReboot();
  std::ifstream source(ZORVIK_SOURCE_DIR "/src/action/RouterCommand.cpp");
  int statement = 1;
  for (std::string line; std::getline(source, line) && line.find("kRebootLine);") == line.npos;)
    ++statement;
  const std::string prefix = "[ZORVIK ERROR Action.cpp:" + std::to_string(statement) + "]";
  ASSERT_EQ(log.lines().size(), 2u);
  EXPECT_EQ(log.lines()[0].text, prefix + "system command: reboot_safe.sh\n");
  EXPECT_EQ(log.lines()[1].text, prefix + "system call error\n");
}

}  // namespace
}  // namespace zorvik
