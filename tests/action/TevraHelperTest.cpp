#include <gtest/gtest.h>

#include <atomic>

#include "action/TevraHelper.h"
#include "support/LogCapture.h"
#include "support/ShellRecorder.h"
#include "support/TempDir.h"

namespace zorvik {
namespace {

using Lines = std::vector<std::string>;

constexpr char kArpHeader[] =
    "IP address       HW type     Flags       HW address            Mask     Device\n";
constexpr char kOtherDevice[] =
    "192.168.31.5     0x1         0x2         11:22:33:44:55:66     *        br-lan\n";
constexpr char kTvEntry[] =
    "192.168.31.23    0x1         0x2         aa:bb:cc:dd:ee:ff     *        br-lan\n";
constexpr char kTvIp[] = "192.168.31.23";

constexpr char kWolPrefix[] = "/usr/sbin/pellway 6 ";
constexpr char kWolLine[] =
    "/usr/sbin/pellway 6 "
    "'eyJjb21tYW5kIjoid29sIiwibWFjIjoiQUE6QkI6Q0M6REQ6RUU6RkYifQ'";
constexpr char kAliveLine[] =
    "/usr/bin/curl -s -k --connect-timeout 1 \"http://192.168.31.23:6095/request?action=isalive\"";
constexpr char kAlivePrefix[] = "/usr/bin/curl -s -k --connect-timeout 1 ";
constexpr char kPowerKeyLine[] =
    "/usr/bin/curl -s -k --connect-timeout 3 "
    "\"http://192.168.31.23:6095/controller?action=keyevent&keycode=power\"";
constexpr char kPowerOnLine[] =
    "/usr/bin/curl -s -k --connect-timeout 10 \"http://192.168.31.23/cgi-bin/powerctrl.cgi?off=0\"";
constexpr char kPowerOffLine[] =
    "/usr/bin/curl -s -k --connect-timeout 10 \"http://192.168.31.23/cgi-bin/powerctrl.cgi?off=1\"";

constexpr auto kTinyPause = std::chrono::milliseconds(1);

TEST(TevraUrlTest, EncodesEveryByteOutsideTheUnreservedSet) {
  EXPECT_EQ(TevraHelper::urlEncode("a b/c?d=\xc3\xa9"), "a+b%2fc%3fd%3d%c3%a9");
  EXPECT_EQ(TevraHelper::urlEncode("AZaz09-._~"), "AZaz09-._~");
  EXPECT_EQ(TevraHelper::urlEncode(std::string("\x00\x7f\xff\"$`\\'", 8)),
            "%00%7f%ff%22%24%60%5c%27");
  EXPECT_EQ(TevraHelper::urlEncode(""), "");
}

class TevraArpTest : public ::testing::Test {
 protected:
  std::string writeArp(const std::string& content) { return dir_.write("arp", content); }
  TempDir dir_;
};

TEST_F(TevraArpTest, FindsTheAddressOfAMacInAnyLetterCase) {
  const std::string arp = writeArp(std::string(kArpHeader) + kOtherDevice + kTvEntry);
  EXPECT_EQ(TevraHelper::ipFromArpTable(arp, "AA:BB:CC:DD:EE:FF"), kTvIp);
  EXPECT_EQ(TevraHelper::ipFromArpTable(arp, "aa:bb:cc:dd:ee:ff"), kTvIp);
  EXPECT_EQ(TevraHelper::ipFromArpTable(arp, "Aa:bB:cc:DD:ee:FF"), kTvIp);
  EXPECT_EQ(TevraHelper::ipFromArpTable(arp, "11:22:33:44:55:66"), "192.168.31.5");
}

TEST_F(TevraArpTest, LinesOfOtherDevicesAndTheHeaderDoNotMatch) {
  const std::string arp = writeArp(std::string(kArpHeader) + kOtherDevice);
  EXPECT_EQ(TevraHelper::ipFromArpTable(arp, "aa:bb:cc:dd:ee:ff"), "");
  EXPECT_EQ(TevraHelper::ipFromArpTable(arp, "HW address"), "");
  EXPECT_EQ(TevraHelper::ipFromArpTable(arp, "aa:bb:cc:dd:ee:00"), "");
  EXPECT_EQ(TevraHelper::ipFromArpTable(writeArp(kArpHeader), "aa:bb:cc:dd:ee:ff"), "");
}

TEST_F(TevraArpTest, MissingTableGivesNoAddress) {
  EXPECT_EQ(TevraHelper::ipFromArpTable(dir_.file("absent"), "aa:bb:cc:dd:ee:ff"), "");
}

TEST_F(TevraArpTest, PatternCharactersInTheMacMatchOnlyThemselves) {
  const std::string arp = writeArp(std::string(kArpHeader) + kOtherDevice + kTvEntry);
  for (const char* mac : {"", ".*", ".", "(", "[", "\\", "\\E.*", "aa:bb:cc:dd:ee:f.", "(?i)",
                          "a{99999999}", ")|(.*"}) {
    EXPECT_EQ(TevraHelper::ipFromArpTable(arp, mac), "") << mac;
  }
  const std::string odd = writeArp("10.0.0.7 0x1 0x2 a.b(c*d 0 x\n");
  EXPECT_EQ(TevraHelper::ipFromArpTable(odd, "A.B(C*D"), "10.0.0.7");
}

// Drives TevraHelper::process() against a fake ARP table and recorded shell commands.
class TevraProcessTest : public ::testing::Test {
 protected:
  TevraProcessTest() : arpPath_(dir_.file("arp")) { writeArp(false); }

  void writeArp(bool withTv) {
    dir_.write("arp", std::string(kArpHeader) + kOtherDevice + (withTv ? kTvEntry : ""));
  }

  // The TV shows up in the ARP table when the `n`th wake-on-LAN command runs.
  void appearAfterWakeCommands(int n) {
    recorder_.setOutputFunction(kWolPrefix, [this, n](const std::string&) {
      if (++wakeCommands_ == n) writeArp(true);
      return std::optional<std::string>("");
    });
  }

  // The alive check answers from its `n`th call on (1: at once).
  void answerFromAliveCheck(int n) {
    recorder_.setOutputFunction(kAlivePrefix, [this, n](const std::string&) {
      return std::optional<std::string>(++aliveChecks_ >= n ? "{\"status\":0}" : "");
    });
  }

  void process(const std::string& payload, std::chrono::milliseconds pause = kTinyPause) {
    TevraHelper(payload, arpPath_, pause).process();
  }

  TempDir dir_;
  const std::string arpPath_;
  LogCapture capture_;
  ShellRecorder recorder_;
  std::atomic<int> wakeCommands_{0};
  std::atomic<int> aliveChecks_{0};
};

TEST_F(TevraProcessTest, BadPayloadsLogTheirFaultUnderTheHelpersName) {
  const struct {
    const char* payload;
    const char* message;
  } cases[] = {
      {"not json", "brelk TevraHelper extra is not json format"},
      {"{\"command\":\"poweron\"}", "brelk TevraHelper mac or command is NULL"},
      {"{\"mac\":\"AA:BB:CC:DD:EE:FF\"}", "brelk TevraHelper mac or command is NULL"},
      {"{\"mac\":null,\"command\":\"poweron\"}", "brelk TevraHelper mac or command is NULL"},
  };
  for (const auto& c : cases) {
    capture_.clear();
    process(c.payload);
    EXPECT_EQ(capture_.messages(), Lines{c.message}) << c.payload;
    ASSERT_EQ(capture_.lines().size(), 1u);
    EXPECT_EQ(capture_.lines()[0].text.rfind("[ZORVIK ERROR TevraHelper.cpp:", 0), 0u);
  }
  EXPECT_TRUE(recorder_.lines().empty());
}

TEST_F(TevraProcessTest, RunDoesTheWorkOnItsOwnThreadAndWaitsForIt) {
  TevraHelper::run("not json");
  EXPECT_EQ(capture_.messages(), Lines{"brelk TevraHelper extra is not json format"});
  TevraHelper::run("{\"command\":\"keyevent\"}");
  EXPECT_EQ(capture_.count("brelk TevraHelper mac or command is NULL"), 1);
}

TEST_F(TevraProcessTest, PowerKeyGoesStraightToAKnownTv) {
  writeArp(true);
  recorder_.setOutput("/usr/bin/curl", "ok");
  process("{\"mac\":\"AA:BB:CC:DD:EE:FF\",\"command\":\"keyevent\",\"keycode\":\"power\"}");
  EXPECT_EQ(recorder_.lines(), Lines{kPowerKeyLine});
  EXPECT_TRUE(recorder_.commands()[0].captured);
  const auto lines = capture_.lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].text.rfind("[ZORVIK INFO TevraHelper.cpp:", 0), 0u) << lines[0].text;
  EXPECT_EQ(LogCapture::messageOf(lines[0].text),
            std::string("system command: ") + kPowerKeyLine + " ,output: ok");
}

TEST_F(TevraProcessTest, PowerKeyForAnUnknownTvSendsNothing) {
  process("{\"mac\":\"AA:BB:CC:DD:EE:FF\",\"command\":\"keyevent\",\"keycode\":\"power\"}");
  EXPECT_TRUE(recorder_.lines().empty());
  EXPECT_TRUE(capture_.lines().empty());
}

TEST_F(TevraProcessTest, OtherKeysOnlyMakeSureTheTvIsOn) {
  writeArp(true);
  answerFromAliveCheck(1);
  process("{\"mac\":\"AA:BB:CC:DD:EE:FF\",\"command\":\"keyevent\",\"keycode\":\"home\"}");
  EXPECT_EQ(recorder_.lines(), Lines{kAliveLine});
  EXPECT_EQ(capture_.messages(),
            Lines{std::string("system command: ") + kAliveLine + " ,output: {\"status\":0}"});
}

TEST_F(TevraProcessTest, PowerOnAndOffReachAKnownTv) {
  writeArp(true);
  process("{\"mac\":\"aa:bb:cc:dd:ee:ff\",\"command\":\"poweron\"}");
  process("{\"mac\":\"AA:BB:CC:DD:EE:FF\",\"command\":\"poweroff\"}");
  EXPECT_EQ(recorder_.lines(), (Lines{kPowerOnLine, kPowerOffLine}));
  EXPECT_EQ(capture_.messages(),
            (Lines{std::string("system command: ") + kPowerOnLine + " ,output: ",
                   std::string("system command: ") + kPowerOffLine + " ,output: "}));
}

TEST_F(TevraProcessTest, PowerOffForAnUnknownTvSendsAndLogsNothing) {
  process("{\"mac\":\"AA:BB:CC:DD:EE:FF\",\"command\":\"poweroff\"}");
  EXPECT_TRUE(recorder_.lines().empty());
  EXPECT_TRUE(capture_.lines().empty());
}

TEST_F(TevraProcessTest, PowerOnForAnAbsentTvWakesItAndSendsNothingMore) {
  appearAfterWakeCommands(2);
  answerFromAliveCheck(1);
  process("{\"mac\":\"AA:BB:CC:DD:EE:FF\",\"command\":\"poweron\"}");
  EXPECT_EQ(recorder_.lines(), (Lines{kWolLine, kWolLine, kAliveLine}));
  EXPECT_FALSE(capture_.contains("brelk"));
}

TEST_F(TevraProcessTest, TvThatNeverAppearsGetsSixWakeCommandsAPauseApart) {
  const auto pause = std::chrono::milliseconds(20);
  process("{\"mac\":\"AA:BB:CC:DD:EE:FF\",\"command\":\"wake\"}", pause);
  EXPECT_EQ(recorder_.lines(), Lines(6, kWolLine));
  const auto commands = recorder_.commands();
  for (size_t i = 1; i < commands.size(); ++i) {
    EXPECT_GE(commands[i].at - commands[i - 1].at, pause);
  }
  EXPECT_EQ(capture_.messages().back(),
            "brelk TevraHelper wol timeout,tevra AA:BB:CC:DD:EE:FF not power on");
  EXPECT_EQ(capture_.lines().back().priority, LogMessage::priorityOf(kLogError));
  EXPECT_EQ(capture_.count("system command: "), 6);
}

TEST_F(TevraProcessTest, TvThatAppearsOnTheLastRoundIsStillUsed) {
  appearAfterWakeCommands(6);
  answerFromAliveCheck(1);
  process("{\"mac\":\"AA:BB:CC:DD:EE:FF\",\"command\":\"wake\"}");
  Lines expected(6, kWolLine);
  expected.push_back(kAliveLine);
  EXPECT_EQ(recorder_.lines(), expected);
  EXPECT_FALSE(capture_.contains("brelk"));
}

TEST_F(TevraProcessTest, SilentTvIsWokenUntilItAnswers) {
  writeArp(true);
  answerFromAliveCheck(3);
  process("{\"mac\":\"AA:BB:CC:DD:EE:FF\",\"command\":\"wake\"}");
  EXPECT_EQ(recorder_.lines(), (Lines{kAliveLine, kWolLine, kAliveLine, kWolLine, kAliveLine}));
  EXPECT_FALSE(capture_.contains("brelk"));
}

TEST_F(TevraProcessTest, TvThatNeverAnswersIsReportedByItsAddress) {
  writeArp(true);
  process("{\"mac\":\"AA:BB:CC:DD:EE:FF\",\"command\":\"video_playurl\",\"url\":\"x\"}");
  Lines expected{kAliveLine};
  for (int i = 0; i < 6; ++i) {
    expected.push_back(kWolLine);
    expected.push_back(kAliveLine);
  }
  EXPECT_EQ(recorder_.lines(), expected);
  EXPECT_EQ(capture_.messages().back(), "brelk TevraHelper tevra 192.168.31.23 not response");
}

TEST_F(TevraProcessTest, VideoIsPlayedWithItsAddressEncoded) {
  writeArp(true);
  answerFromAliveCheck(1);
  process(
      "{\"mac\":\"AA:BB:CC:DD:EE:FF\",\"command\":\"video_playurl\",\"url\":\"a b/c?d=\xc3\xa9\"}");
  EXPECT_EQ(recorder_.lines(),
            (Lines{kAliveLine,
                   "/usr/bin/curl -s -k --connect-timeout 3  \"http://192.168.31.23:6095/"
                   "video?action=play&url=a+b%2fc%3fd%3d%c3%a9&clientname=norvel\""}));
}

TEST_F(TevraProcessTest, VideoWithoutAddressIsLoggedAfterTheWake) {
  writeArp(true);
  answerFromAliveCheck(1);
  process("{\"mac\":\"AA:BB:CC:DD:EE:FF\",\"command\":\"video_playurl\"}");
  EXPECT_EQ(recorder_.lines(), Lines{kAliveLine});
  EXPECT_EQ(capture_.messages().back(), "brelk TevraHelper video_playurl is null");
}

TEST_F(TevraProcessTest, CommandThatCannotStartIsNotLogged) {
  writeArp(true);
  recorder_.setOutput("/usr/bin/curl", std::nullopt);
  process("{\"mac\":\"AA:BB:CC:DD:EE:FF\",\"command\":\"poweroff\"}");
  EXPECT_EQ(recorder_.lines(), Lines{kPowerOffLine});
  EXPECT_TRUE(capture_.lines().empty());
}

TEST_F(TevraProcessTest, HostileKeycodeAndUrlNeverReachTheShellAsText) {
  writeArp(true);
  answerFromAliveCheck(1);
  process(
      "{\"mac\":\"AA:BB:CC:DD:EE:FF\",\"command\":\"keyevent\",\"keycode\":\"power\\\"; touch "
      "/tmp/f; \\\"\"}");
  EXPECT_EQ(recorder_.lines(), Lines{kAliveLine});
  recorder_.clear();
  process(
      "{\"mac\":\"AA:BB:CC:DD:EE:FF\",\"command\":\"video_playurl\",\"url\":\"\\\"$(touch "
      "/tmp/f)`id`\\\\\"}");
  EXPECT_EQ(recorder_.lines(),
            (Lines{kAliveLine,
                   "/usr/bin/curl -s -k --connect-timeout 3  \"http://192.168.31.23:6095/"
                   "video?action=play&url=%22%24%28touch+%2ftmp%2ff%29%60id%60%5c&clientname="
                   "norvel\""}));
}

TEST_F(TevraProcessTest, HostileMacMatchesNothingAndTravelsEncoded) {
  writeArp(true);
  process("{\"mac\":\"x'; touch /tmp/f; '\",\"command\":\"wake\"}");
  EXPECT_EQ(recorder_.lines(),
            Lines(6,
                  "/usr/sbin/pellway 6 "
                  "'eyJjb21tYW5kIjoid29sIiwibWFjIjoieCc7IHRvdWNoIC90bXAvZjsgJyJ9'"));
  EXPECT_EQ(capture_.messages().back(),
            "brelk TevraHelper wol timeout,tevra x'; touch /tmp/f; ' not power on");
}

}  // namespace
}  // namespace zorvik
