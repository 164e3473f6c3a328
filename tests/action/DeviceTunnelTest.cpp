#include <gtest/gtest.h>

#include "action/DeviceTunnel.h"
#include "support/LogCapture.h"
#include "support/ShellRecorder.h"

namespace zorvik {
namespace {

using Lines = std::vector<std::string>;

TEST(DeviceTunnelTest, Base64OfShortTextsHasNoPadding) {
  EXPECT_EQ(DeviceTunnel::base64Encode(""), "");
  EXPECT_EQ(DeviceTunnel::base64Encode("a"), "YQ");
  EXPECT_EQ(DeviceTunnel::base64Encode("ab"), "YWI");
  EXPECT_EQ(DeviceTunnel::base64Encode("abc"), "YWJj");
  EXPECT_EQ(DeviceTunnel::base64Encode("abcd"), "YWJjZA");
  EXPECT_EQ(DeviceTunnel::base64Encode("{\"a\":1}"), "eyJhIjoxfQ");
}

TEST(DeviceTunnelTest, Base64TreatsBytesAsUnsignedAndUsesTheWholeAlphabet) {
  EXPECT_EQ(DeviceTunnel::base64Encode(std::string("\xff\xfe\x00", 3)), "//4A");
  const std::string everySixBitValue(
      "\x00\x10\x83\x10\x51\x87\x20\x92\x8b\x30\xd3\x8f\x41\x14\x93\x51\x55\x97\x61\x96\x9b\x71"
      "\xd7\x9f\x82\x18\xa3\x92\x59\xa7\xa2\x9a\xab\xb2\xdb\xaf\xc3\x1c\xb3\xd3\x5d\xb7\xe3\x9e"
      "\xbb\xf3\xdf\xbf",
      48);
  EXPECT_EQ(DeviceTunnel::base64Encode(everySixBitValue),
            "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/");
}

TEST(DeviceTunnelTest, DeviceMessageRunsFormSixAndLogsAtInfo) {
  LogCapture capture;
  ShellRecorder recorder;
  DeviceTunnel::doTunnel("{\"a\":1}");
  EXPECT_EQ(recorder.lines(), Lines{"/usr/sbin/pellway 6 'eyJhIjoxfQ'"});
  EXPECT_FALSE(recorder.commands()[0].captured);
  const auto lines = capture.lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].priority, LogMessage::priorityOf(kLogInfo));
  EXPECT_EQ(lines[0].text.rfind("[ZORVIK INFO Action.cpp:", 0), 0u) << lines[0].text;
  EXPECT_EQ(LogCapture::messageOf(lines[0].text),
            "system command: /usr/sbin/pellway 6 'eyJhIjoxfQ'");
}

TEST(DeviceTunnelTest, EmptyPayloadIsSentAsAnEmptyArgument) {
  ShellRecorder recorder;
  DeviceTunnel::doTunnel("");
  EXPECT_EQ(recorder.lines(), Lines{"/usr/sbin/pellway 6 ''"});
}

TEST(DeviceTunnelTest, FormSevenRunsItsOwnSelectorAndSucceeds) {
  ShellRecorder recorder;
  EXPECT_TRUE(DeviceTunnel::doTunnelForm7("{\"a\":1}"));
  EXPECT_EQ(recorder.lines(), Lines{"/usr/sbin/pellway 7 'eyJhIjoxfQ'"});
}

TEST(DeviceTunnelTest, ToolFailureLogsOneErrorLineAndNothingElse) {
  LogCapture capture;
  ShellRecorder recorder;
  recorder.setResult("/usr/sbin/pellway", 256);
  DeviceTunnel::doTunnel("x");
  EXPECT_TRUE(DeviceTunnel::doTunnelForm7("x"));
  EXPECT_EQ(recorder.lines().size(), 2u);
  EXPECT_EQ(capture.messages(),
            (Lines{"system command: /usr/sbin/pellway 6 'eA'", "system call error",
                   "system command: /usr/sbin/pellway 7 'eA'", "system call error"}));
  EXPECT_EQ(capture.lines()[1].priority, LogMessage::priorityOf(kLogError));
}

TEST(DeviceTunnelTest, ShellTextInThePayloadTravelsEncoded) {
  ShellRecorder recorder;
  DeviceTunnel::doTunnel("';touch /tmp/f;'");
  EXPECT_EQ(recorder.lines(), Lines{"/usr/sbin/pellway 6 'Jzt0b3VjaCAvdG1wL2Y7Jw'"});
}

}  // namespace
}  // namespace zorvik
