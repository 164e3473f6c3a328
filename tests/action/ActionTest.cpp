// The action back ends: the log lines of the router commands, both sibling-service clients
// against a service on loopback that answers one call with a scripted reply, and the TV helper
// against a fake ARP table and a recording shell.
#include <gtest/gtest.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TServerSocket.h>

#include <fstream>
#include <map>
#include <thread>

#include "HalvexServ.h"
#include "Kelmora.h"
#include "action/LocalServiceClient.h"
#include "action/RouterCommand.h"
#include "action/TevraHelper.h"
#include "support/LogCapture.h"
#include "support/ShellRecorder.h"
#include "support/TempDir.h"

namespace zorvik {
namespace {

using namespace apache::thrift;

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
  EXPECT_EQ(log.lines(), (std::vector<std::string>{prefix + "system command: reboot_safe.sh\n",
                                                   prefix + "system call error\n"}));
}

const char kThrow[] = "<throw>";  // the service fails the call instead of replying

// Either service: both have the one method request(text) -> text.
struct Service : HalvexServIf, kelmora::KelmoraIf {
  explicit Service(std::string reply) : reply(std::move(reply)) {}
  void request(std::string& result, const std::string& text) override {
    received.push_back(text);
    if (reply == kThrow) throw std::runtime_error("service failure");
    result = reply;
  }
  const std::string reply;
  std::vector<std::string> received;  // read once the serving thread has ended
};

template <typename Processor>
void checkReplies(const std::string& name, bool (*send)(const std::string&, int)) {
  // The service's reply, the payload, whether the call succeeds, the error line it logs. (A
  // plain payload answered with code 0 is in e2e/run.t.)
  const std::tuple<const char*, std::string, bool, std::string> rows[] = {
      {R"({"code":"0"})", std::string("not json\0\xff'\"\n{", 14), true, ""},
      {R"({"code":3})", "p", false, ""},
      {kThrow, "p", false, ""},
      {"ok", "p", false, name + " result is not json format"},
      {R"({"result":1})", "p", false, name + " json result not contain code"},
  };
  for (const auto& [reply, payload, ok, logged] : rows) {
    LogCapture log;
    const auto service = std::make_shared<Service>(reply);
    transport::TServerSocket socket("127.0.0.1", 0);
    socket.listen();
    std::thread serving([&] {
      auto connection = std::make_shared<transport::TFramedTransport>(socket.accept());
      auto protocol = std::make_shared<protocol::TBinaryProtocol>(connection);
      Processor(service).process(protocol, protocol, nullptr);
    });
    EXPECT_EQ(send(payload, socket.getPort()), ok) << name << reply;
    serving.join();
    EXPECT_EQ(service->received, std::vector<std::string>{payload});
    EXPECT_EQ(log.entries(),
              logged.empty() ? std::vector<std::string>{} : std::vector{"E Action.cpp " + logged});
  }
}

TEST(LocalServiceClientTest, OnlyAReplyWithCodeZeroIsSuccess) {
  checkReplies<HalvexServProcessor>("Halvex", LocalServiceClient::sendToHalvex);
  checkReplies<kelmora::KelmoraProcessor>("Kelmora", LocalServiceClient::sendToKelmora);
}

const std::string kArp =
    "IP address       HW type     Flags       HW address            Mask     Device\n"
    "192.168.31.5     0x1         0x2         11:22:33:44:55:66     *        br-lan\n";
const std::string kTv =
    "192.168.31.23    0x1         0x2         aa:bb:cc:dd:ee:ff     *    br-lan\n";

// The MAC joins the pattern as given (lower-cased, so the TV rows below find it in any letter
// case): pattern characters keep their meaning, and a pattern that does not compile, or that
// captures more than the address, finds nothing, as does a missing table.
TEST(TevraHelperTest, ArpTableIsSearchedWithTheMacAsPartOfThePattern) {
  TempDir dir;
  const std::string arp = dir.write("arp", kArp + kTv);
  const std::pair<const char*, const char*> rows[] = {
      {"AA:BB:CC:DD:EE:F.", "192.168.31.23"}, {"(aa:bb:cc:dd:ee:ff)", ""}, {"[", ""}};
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
      {'V', curl + "3  \"http://192.168.31.23:6095/video?action=play&url=a+b%2fc%3fd%3d%c3%a9-._~"
                   "%22%24%60%5c%27&clientname=norvel\""}};
  // Payload; the TV is in the ARP table from the start (0), after so many wake-ups or never (-1);
  // the alive check answers from its nth call on (0: never); the commands sent; the error logged
  // after the commands, after "brelk TevraHelper ". (A TV found and switched off: e2e/run.t.)
  const std::tuple<std::string, int, int, std::string, std::string> rows[] = {
      {R"({"command":"poweron"})", 0, 1, "", "mac or command is NULL"},
      {R"({"mac":"AA:BB:CC:DD:EE:FF"})", 0, 1, "", "mac or command is NULL"},
      {tv("keyevent", R"(,"keycode":"power")"), 0, 1, "K", ""},
      {tv("keyevent", R"(,"keycode":"power")"), -1, 1, "", ""},
      {tv("keyevent", R"(,"keycode":"home\"; touch /tmp/f; \"")"), 0, 1, "A", ""},
      {tv("poweron"), 0, 1, "N", ""},
      {tv("poweron"), 2, 1, "WWA", ""},
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
    // Structured bindings are captured by name: C++17 lambdas may not capture them directly.
    shell.setOutput([&, arpAfterWakes = arpAfterWakes,
                     aliveFrom = aliveFrom](const std::string& line) -> std::optional<std::string> {
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
