// DeviceTunnel: base64-encodes device messages and runs the device tunnel tool with them.
#include "action/DeviceTunnel.h"

#include "action/Action.h"
#include "server/Log.h"
#include "server/Shell.h"

namespace zorvik {
namespace {

constexpr char kTunnelProgram[] = "/usr/sbin/pellway ";
constexpr char kBase64Alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr int kBitsPerChar = 6;
constexpr unsigned kCharMask = 0x3f;
// At most 12 bits are ever pending: 4 left over (a multiple of 8 less a multiple of 6) plus one
// new byte.
constexpr unsigned kPendingMask = 0xfff;

}  // namespace

std::string DeviceTunnel::base64Encode(const std::string& text) {
  std::string encoded;
  encoded.reserve((text.size() * 8 + kBitsPerChar - 1) / kBitsPerChar);
  unsigned bits = 0;  // pending input bits, the oldest in the high positions
  int pending = 0;    // how many of them are not encoded yet
  for (unsigned char byte : text) {
    bits = ((bits << 8) | byte) & kPendingMask;
    pending += 8;
    while (pending >= kBitsPerChar) {
      pending -= kBitsPerChar;
      encoded += kBase64Alphabet[(bits >> pending) & kCharMask];
    }
  }
  if (pending > 0) encoded += kBase64Alphabet[(bits << (kBitsPerChar - pending)) & kCharMask];
  return encoded;
}

std::string DeviceTunnel::tunnelLine(int form, const std::string& message) {
  // Quoting changes nothing for base64 text; it only keeps the line one word whatever happens.
  return kTunnelProgram + std::to_string(form) + " " + Shell::quote(base64Encode(message));
}

void DeviceTunnel::doTunnel(const std::string& payload) {
  ZSHELL_RUN_AS(kActionLogModule, kLogInfo, tunnelLine(kDeviceForm, payload));
}

bool DeviceTunnel::doTunnelForm7(const std::string& payload) {
  ZSHELL_RUN_AS(kActionLogModule, kLogInfo, tunnelLine(kForm7, payload));
  return true;
}

}  // namespace zorvik
