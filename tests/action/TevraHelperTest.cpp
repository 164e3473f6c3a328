// The TV helper against a fake ARP table and a recording shell.
#include <gtest/gtest.h>

#include <map>

#include "action/TevraHelper.h"
#include "support/LogCapture.h"
#include "support/ShellRecorder.h"
#include "support/TempDir.h"

namespace zorvik {
namespace {

const std::string kArp =
    "IP address       HW type     Flags       HW address            Mask     Device\n"
    "192.168.31.5     0x1         0x2         11:22:33:44:55:66     *        br-lan\n";
const std::string kTv =
    "192.168.31.23    0x1         0x2         aa:bb:cc:dd:ee:ff     *    br-lan\n";

TEST(TevraHelperTest, ArpTableGivesTheAddressOfAMacInAnyLetterCase) {
  TempDir dir;
  const std::string arp = dir.write("arp", kArp + kTv);
  // The MAC goes into the pattern as given, lower-cased: pattern characters keep their meaning,
  // and a pattern that does not compile, or that captures more than the address, finds nothing.
  const std::pair<const char*, const char*> rows[] = {{"aA:bB:cc:DD:ee:ff", "192.168.31.23"},
                                                      {"11:22:33:44:55:66", "192.168.31.5"},
                                                      {"AA:BB:CC:DD:EE:F.", "192.168.31.23"},
                                                      {"(aa:bb:cc:dd:ee:ff)", ""},
                                                      {"[", ""},
                                                      {"aa:bb:cc:dd:ee:00", ""}};
  for (const auto& [mac, address] : rows) {
    EXPECT_EQ(TevraHelper::ipFromArpTable(arp, mac), address) << mac;
  }
  EXPECT_EQ(TevraHelper::ipFromArpTable(dir.file("absent"), "aa:bb:cc:dd:ee:ff"), "");
}

std::string tv(const std::string& command, const std::string& more = "") {
  return R"({"mac":"AA:BB:CC:DD:EE:FF","command":")" + command + "\"" + more + "}";
}

TEST(TevraHelperTest, CommandsSendTheirLinesAndWakeTheTvWhenNeeded) {
  const std::string curl = "/usr/bin/curl -s -k --connect-timeout ";
  const std::map<char, std::string> lines = {
      // the command lines of the rows, a letter each
      {'W', "/usr/sbin/pellway 6 'eyJjb21tYW5kIjoid29sIiwibWFjIjoiQUE6QkI6Q0M6REQ6RUU6RkYifQ'"},
      {'A', curl + R"(1 "http://192.168.31.23:6095/request?action=isalive")"},
      {'K', curl + R"(3 "http://192.168.31.23:6095/controller?action=keyevent&keycode=power")"},
      {'N', curl + R"(10 "http://192.168.31.23/cgi-bin/powerctrl.cgi?off=0")"},
      {'F', curl + R"(10 "http://192.168.31.23/cgi-bin/powerctrl.cgi?off=1")"},
      {'V', curl + "3  \"http://192.168.31.23:6095/video?action=play&url=a+b%2fc%3fd%3d%c3%a9-._~"
                   "%22%24%60%5c%27&clientname=norvel\""}};
  // Payload; the TV is in the ARP table from the start (0), after so many wake-ups or never (-1);
  // the alive check answers from its nth call on (0: never); the commands sent; the error logged
  // after the commands, after "brelk TevraHelper ".
  const std::tuple<std::string, int, int, std::string, std::string> rows[] = {
      {R"({"command":"poweron"})", 0, 1, "", "mac or command is NULL"},
      {R"({"mac":"AA:BB:CC:DD:EE:FF"})", 0, 1, "", "mac or command is NULL"},
      {tv("keyevent", R"(,"keycode":"power")"), 0, 1, "K", ""},
      {tv("keyevent", R"(,"keycode":"power")"), -1, 1, "", ""},
      {tv("keyevent", R"(,"keycode":"home\"; touch /tmp/f; \"")"), 0, 1, "A", ""},
      {tv("poweron"), 0, 1, "N", ""},
      {tv("poweron"), 2, 1, "WWA", ""},
      {tv("poweroff"), 0, 1, "F", ""},
      {tv("poweroff"), -1, 1, "", ""},
      {tv("wake"), -1, 1, "WWWWWW", "wol timeout,tevra AA:BB:CC:DD:EE:FF not power on"},
      {tv("wake"), 6, 1, "WWWWWWA", ""},
      {tv("wake"), 0, 3, "AWAWA", ""},
      {tv("video_playurl", R"(,"url":"x")"), 0, 0, "AWAWAWAWAWAWA",
       "tevra 192.168.31.23 not response"},
      {tv("video_playurl", ",\"url\":\"a b/c?d=\xc3\xa9-._~\\\"$`\\\\'\""), 0, 1, "AV", ""},
      {tv("video_playurl"), 0, 1, "A", "video_playurl is null"}};
  const auto pause = std::chrono::milliseconds(10);
  const auto isWake = [](const std::string& line) { return line.find("pellway") != line.npos; };
  for (const auto& [payload, arpAfterWakes, aliveFrom, letters, error] : rows) {
    SCOPED_TRACE(payload);
    TempDir dir;
    const std::string arp = dir.write("arp", kArp + (arpAfterWakes == 0 ? kTv : ""));
    ShellRecorder shell;
    LogCapture log;
    int wakes = 0, aliveChecks = 0;
    std::vector<std::string> commands, logged;  // what is to be sent and logged
    for (char letter : letters) commands.push_back(lines.at(letter));
    shell.setOutput("", [&](const std::string& line) -> std::optional<std::string> {
      if (isWake(line) && ++wakes == arpAfterWakes) dir.write("arp", kArp + kTv);
      const bool answers = line == lines.at('A') && aliveFrom > 0 && ++aliveChecks >= aliveFrom;
      logged.push_back("I TevraHelper.cpp system command: " + line +
                       " ,output: " + (answers ? "1" : ""));
      return answers ? "1" : "";
    });
    TevraHelper(payload, arp, pause).process();
    EXPECT_EQ(shell.lines(), commands);
    if (!error.empty()) logged.push_back("E TevraHelper.cpp brelk TevraHelper " + error);
    EXPECT_EQ(log.entries(), logged);
    const std::vector<ShellRecorder::Command> sent = shell.commands();
    for (size_t i = 1; i < sent.size(); ++i) {  // each wake-up is followed by the pause
      if (isWake(sent[i - 1].line)) {
        EXPECT_GE(sent[i].at - sent[i - 1].at, pause);
      }
    }
  }
}

}  // namespace
}  // namespace zorvik
