#include <gtest/gtest.h>
#include <json-c/json.h>

#include "action/RouterCommand.h"
#include "support/LogCapture.h"
#include "support/ShellRecorder.h"

namespace zorvik {
namespace {

using Lines = std::vector<std::string>;

constexpr char kBlockLine[] =
    "/usr/sbin/teldra macfilter set mac=AA:BB:CC:DD:EE:FF wan=no;/usr/sbin/teldra macfilter "
    "commit";
constexpr char kUnblockLine[] =
    "/usr/sbin/teldra macfilter set mac=aa-bb-cc-dd-ee-ff wan=yes;/usr/sbin/teldra macfilter "
    "commit";

// A JSON object of string members, escaped by json-c.
std::string jsonObjectText(std::initializer_list<std::pair<const char*, std::string>> members) {
  json_object* object = json_object_new_object();
  for (const auto& [key, value] : members) {
    json_object_object_add(object, key, json_object_new_string(value.c_str()));
  }
  std::string text = json_object_to_json_string(object);
  json_object_put(object);
  return text;
}

class RouterCommandTest : public ::testing::Test {
 protected:
  // Every line the router actions log is an error-level line of the action module.
  void expectAllLinesFromActionAtErrorLevel() const {
    for (const CapturedLine& line : capture_.lines()) {
      EXPECT_EQ(line.priority, LogMessage::priorityOf(kLogError)) << line.text;
      EXPECT_EQ(line.text.rfind("[ZORVIK ERROR Action.cpp:", 0), 0u) << line.text;
    }
  }

  LogCapture capture_;
  ShellRecorder recorder_;
};

TEST_F(RouterCommandTest, PayloadCommandsRunTheirLines) {
  const struct {
    const char* payload;
    const char* line;
  } cases[] = {
      {"{\"command\":\"wan_block\",\"mac\":\"AA:BB:CC:DD:EE:FF\"}", kBlockLine},
      {"{\"command\":\"wan_unblock\",\"mac\":\"aa-bb-cc-dd-ee-ff\"}", kUnblockLine},
      {"{\"command\":\"wifi_down\"}", "/sbin/wifi down"},
      {"{\"command\":\"wifi_up\",\"mac\":\"ignored;x\"}", "/sbin/wifi"},
  };
  for (const auto& c : cases) {
    recorder_.clear();
    capture_.clear();
    RouterCommand::doRouterCommand(c.payload);
    EXPECT_EQ(recorder_.lines(), Lines{c.line}) << c.payload;
    EXPECT_EQ(capture_.messages(), Lines{std::string("system command: ") + c.line});
    expectAllLinesFromActionAtErrorLevel();
  }
}

TEST_F(RouterCommandTest, FailingCommandLogsSystemCallError) {
  recorder_.setResult("/sbin/wifi", 1);
  RouterCommand::doRouterCommand("{\"command\":\"wifi_up\"}");
  EXPECT_EQ(capture_.messages(), (Lines{"system command: /sbin/wifi", "system call error"}));
  expectAllLinesFromActionAtErrorLevel();
}

TEST_F(RouterCommandTest, BadPayloadsLogTheirFaultAndRunNothing) {
  const struct {
    const char* payload;
    const char* message;
  } cases[] = {
      {"not json", "brelk router payload is not json format"},
      {"null", "brelk router payload is not json format"},
      {"", "brelk router payload is not json format"},
      {"{\"mac\":\"AA:BB:CC:DD:EE:FF\"}", "brelk router payload not contain command"},
      {"[\"wifi_up\"]", "brelk router payload not contain command"},
      {"{\"command\":\"wan_unblock\"}", "brelk router payload not contain mac"},
      {"{\"command\":\"wan_block\",\"mac\":null}", "brelk router payload not contain mac"},
  };
  for (const auto& c : cases) {
    capture_.clear();
    RouterCommand::doRouterCommand(c.payload);
    EXPECT_EQ(capture_.messages(), Lines{c.message}) << c.payload;
    expectAllLinesFromActionAtErrorLevel();
  }
  EXPECT_TRUE(recorder_.lines().empty());
}

TEST_F(RouterCommandTest, UnknownCommandsAreSilent) {
  RouterCommand::doRouterCommand("{\"command\":\"reboot\"}");
  RouterCommand::doRouterCommand("{\"command\":\"WIFI_UP\"}");
  RouterCommand::doRouterCommand("{\"command\":7}");
  RouterCommand::doRouterGroup("", "{}");
  RouterCommand::doRouterGroup("reboot", "{\"mac\":\"AA:BB:CC:DD:EE:FF\"}");
  EXPECT_TRUE(recorder_.lines().empty());
  EXPECT_TRUE(capture_.lines().empty());
}

TEST_F(RouterCommandTest, GroupCommandsTakeTheMacFromExtra) {
  RouterCommand::doRouterGroup("wan_block", "{\"mac\":\"AA:BB:CC:DD:EE:FF\",\"duration\":600000}");
  RouterCommand::doRouterGroup("wan_unblock", "{\"mac\":\"aa-bb-cc-dd-ee-ff\"}");
  RouterCommand::doRouterGroup("wifi_down", "{\"duration\":600000}");
  RouterCommand::doRouterGroup("wifi_up", "{}");
  EXPECT_EQ(recorder_.lines(), (Lines{kBlockLine, kUnblockLine, "/sbin/wifi down", "/sbin/wifi"}));
  EXPECT_EQ(capture_.count("system command: "), 4);
  expectAllLinesFromActionAtErrorLevel();
}

TEST_F(RouterCommandTest, BadGroupExtrasLogTheirFaultAndRunNothing) {
  RouterCommand::doRouterGroup("wifi_up", "not json");
  RouterCommand::doRouterGroup("unknown", "not json");
  RouterCommand::doRouterGroup("wan_block", "{\"duration\":1000}");
  EXPECT_TRUE(recorder_.lines().empty());
  EXPECT_EQ(capture_.messages(),
            (Lines{"brelk router group extra is not json format",
                   "brelk router group extra is not json format",
                   "brelk router group extra not contain mac for wan block or unblock"}));
  expectAllLinesFromActionAtErrorLevel();
}

TEST_F(RouterCommandTest, MacThatCouldChangeTheCommandRunsNothing) {
  const char* hostile[] = {"x;touch /tmp/f", "$(reboot)",          "aa:bb`id`", "aa bb",
                           "aa\nreboot",     "AA:BB:CC:DD:EE:FF'", "aa|bb",     "aa&&bb"};
  for (const char* mac : hostile) {
    capture_.clear();
    RouterCommand::doRouterCommand(jsonObjectText({{"command", "wan_block"}, {"mac", mac}}));
    RouterCommand::doRouterGroup("wan_unblock", jsonObjectText({{"mac", mac}}));
    const std::string expected = std::string("brelk router mac is invalid: ") + mac;
    EXPECT_EQ(capture_.messages(), (Lines{expected, expected})) << mac;
    expectAllLinesFromActionAtErrorLevel();
  }
  EXPECT_TRUE(recorder_.lines().empty());
}

TEST(RouterMacTest, OnlyHexDigitsColonsAndDashesAreSafe) {
  EXPECT_TRUE(RouterCommand::isSafeMac("AA:BB:CC:DD:EE:FF"));
  EXPECT_TRUE(RouterCommand::isSafeMac("0a-1b-2c-3d-4e-5f"));
  EXPECT_TRUE(RouterCommand::isSafeMac(""));
  EXPECT_FALSE(RouterCommand::isSafeMac("AA:BB:CC:DD:EE:FG"));
  EXPECT_FALSE(RouterCommand::isSafeMac("AA BB"));
  EXPECT_FALSE(RouterCommand::isSafeMac(std::string("AA\0;", 4)));
  EXPECT_FALSE(RouterCommand::isSafeMac("AA:\xc3\xa9"));
}

TEST_F(RouterCommandTest, ShutdownRunsOnItsOwnThreadInWholeMinutes) {
  RouterCommand::doRouterShutdown("{\"duration\":59999}");
  ASSERT_TRUE(recorder_.waitForCount(1));
  RouterCommand::doRouterShutdown("{\"duration\":120000}");
  ASSERT_TRUE(recorder_.waitForCount(2));
  EXPECT_EQ(recorder_.lines(), (Lines{"/usr/sbin/qumbe 2 0", "/usr/sbin/qumbe 2 2"}));
  EXPECT_EQ(capture_.messages(),
            (Lines{"system command: /usr/sbin/qumbe 2 0", "system command: /usr/sbin/qumbe 2 2"}));
  expectAllLinesFromActionAtErrorLevel();
}

TEST_F(RouterCommandTest, ShutdownWorkerRoundsTowardZero) {
  RouterCommand::shutdownWorker(-119999);
  RouterCommand::shutdownWorker(3600000);
  EXPECT_EQ(recorder_.lines(), (Lines{"/usr/sbin/qumbe 2 -1", "/usr/sbin/qumbe 2 60"}));
}

TEST_F(RouterCommandTest, BadShutdownExtrasLogTheirFaultAndRunNothing) {
  RouterCommand::doRouterShutdown("not json");
  RouterCommand::doRouterShutdown("{\"mac\":\"AA:BB:CC:DD:EE:FF\"}");
  EXPECT_EQ(capture_.messages(),
            (Lines{"brelk router shutdown extra is not json format",
                   "brelk router shutdown extra not contain duration for shutdown"}));
  expectAllLinesFromActionAtErrorLevel();
  EXPECT_FALSE(recorder_.waitForCount(1, std::chrono::milliseconds(200)));
}

TEST_F(RouterCommandTest, RebootRunsTheSafeRebootScript) {
  RouterCommand::doRouterReboot();
  EXPECT_EQ(recorder_.lines(), Lines{"reboot_safe.sh"});
  EXPECT_EQ(capture_.messages(), Lines{"system command: reboot_safe.sh"});
  expectAllLinesFromActionAtErrorLevel();
}

}  // namespace
}  // namespace zorvik
