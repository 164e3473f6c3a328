// TevraHelper: finds the TV in the ARP table, wakes it and sends it curl requests.
#include "action/TevraHelper.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <json-c/json.h>
#include <pcre2.h>

#include <cctype>
#include <memory>
#include <sstream>
#include <thread>

#include "action/DeviceTunnel.h"
#include "server/Json.h"
#include "server/Log.h"
#include "server/Shell.h"
#include "server/Text.h"
#include "server/TextFile.h"

namespace zorvik {
namespace {

constexpr char kMacKey[] = "mac";
constexpr char kCommandKey[] = "command";
constexpr char kKeycodeKey[] = "keycode";
constexpr char kUrlKey[] = "url";
// The only key the TV is sent; any other key only makes sure the TV is on.
constexpr char kPowerKey[] = "power";

// An address, whitespace, anything, whitespace, then the MAC.
constexpr char kArpLinePattern[] = "([\\d\\.]+)\\s+.+\\s+";
// The address group; a match that reports exactly this many groups (whole match included)
// carries it.
constexpr int kAddressGroup = 1;
constexpr int kArpMatchCount = 2;

constexpr char kCurl[] = "/usr/bin/curl -s -k --connect-timeout ";
constexpr char kTvControlPort[] = ":6095";
constexpr char kVideoClientName[] = "norvel";
constexpr int kKeyEventTimeout = 3;
constexpr int kAliveTimeout = 1;
constexpr int kPowerTimeout = 10;
constexpr int kVideoTimeout = 3;
// The play-video line carries two blanks before its address; the others one.
constexpr char kVideoGap[] = "  ";

constexpr char kHexDigits[] = "0123456789abcdef";

using PatternCode = std::unique_ptr<pcre2_code, decltype(&pcre2_code_free)>;
using MatchData = std::unique_ptr<pcre2_match_data, decltype(&pcre2_match_data_free)>;

std::string lowerCase(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

// "/usr/bin/curl -s -k --connect-timeout <seconds><gap>"http://<address>"".
std::string curlLine(int timeoutSeconds, const std::string& address, const char* gap = " ") {
  return kCurl + std::to_string(timeoutSeconds) + gap + "\"http://" + address + "\"";
}

// The address in group 1 when `line` matches, else "".
std::string addressIn(const pcre2_code* pattern, pcre2_match_data* match, const std::string& line) {
  const int rc = pcre2_match(pattern, reinterpret_cast<PCRE2_SPTR>(line.data()), line.size(), 0, 0,
                             match, nullptr);
  if (rc != kArpMatchCount) return "";
  const PCRE2_SIZE* offsets = pcre2_get_ovector_pointer(match);
  const PCRE2_SIZE begin = offsets[2 * kAddressGroup];
  const PCRE2_SIZE end = offsets[2 * kAddressGroup + 1];
  return line.substr(begin, end - begin);
}

}  // namespace

const TevraHelper::CommandStep TevraHelper::kCommandSteps[] = {
    {"keyevent", &TevraHelper::pressPowerKey, nullptr},
    {"poweron", &TevraHelper::powerOnIfFound, nullptr},
    {"poweroff", &TevraHelper::powerOffIfFound, nullptr},
    {"video_playurl", nullptr, &TevraHelper::playRequestedVideo},
};

TevraHelper::TevraHelper(std::string extra, std::string arpPath,
                         std::chrono::milliseconds wakePause)
    : extra_(std::move(extra)), arpPath_(std::move(arpPath)), wakePause_(wakePause) {}

void TevraHelper::run(const std::string& payload) {
  TevraHelper helper(payload);
  std::thread worker(&TevraHelper::process, &helper);
  worker.join();
}

void TevraHelper::process() {
  Json::Document json = Json::parse(extra_);
  if (!json) {
    ZLOG(kLogError) << "brelk TevraHelper extra is not json format";
    return;
  }
  json_object* mac = Json::member(json.get(), kMacKey);
  json_object* command = Json::member(json.get(), kCommandKey);
  if (mac == nullptr || command == nullptr) {
    ZLOG(kLogError) << "brelk TevraHelper mac or command is NULL";
    return;
  }
  mac_ = Json::text(mac);
  const CommandStep* step = findWord(kCommandSteps, &CommandStep::command, Json::text(command));
  if (step != nullptr && step->beforeWake != nullptr && (this->*step->beforeWake)(json.get())) {
    return;
  }
  const std::string ip = wakeUp();
  if (ip.empty()) return;
  if (step != nullptr && step->afterWake != nullptr) (this->*step->afterWake)(ip, json.get());
}

bool TevraHelper::pressPowerKey(json_object* json) {
  if (Json::memberText(json, kKeycodeKey) != kPowerKey) return false;
  sendKeyEvent(kPowerKey);
  return true;
}

bool TevraHelper::powerOnIfFound(json_object*) {
  const std::string ip = getIpByMac();
  if (ip.empty()) return false;
  powerControl(ip, false);
  return true;
}

bool TevraHelper::powerOffIfFound(json_object*) {
  const std::string ip = getIpByMac();
  if (!ip.empty()) powerControl(ip, true);
  return true;
}

void TevraHelper::playRequestedVideo(const std::string& ip, json_object* json) {
  json_object* url = Json::member(json, kUrlKey);
  if (url == nullptr) {
    ZLOG(kLogError) << "brelk TevraHelper video_playurl is null";
    return;
  }
  playVideo(ip, Json::text(url));
}

std::string TevraHelper::wakeUp() {
  std::string ip = getIpByMac();
  for (int round = 0; ip.empty() && round < kWakeTries; ++round) {
    sendWakeOnLan();
    std::this_thread::sleep_for(wakePause_);
    ip = getIpByMac();
  }
  if (ip.empty()) {
    ZLOG(kLogError) << "brelk TevraHelper wol timeout,tevra " << mac_ << " not power on";
    return "";
  }
  bool alive = isAlive(ip);
  for (int round = 0; !alive && round < kWakeTries; ++round) {
    sendWakeOnLan();
    std::this_thread::sleep_for(wakePause_);
    alive = isAlive(ip);
  }
  if (!alive) {
    ZLOG(kLogError) << "brelk TevraHelper tevra " << ip << " not response";
    return "";
  }
  return ip;
}

std::string TevraHelper::getIpByMac() const { return ipFromArpTable(arpPath_, mac_); }

std::string TevraHelper::ipFromArpTable(const std::string& arpPath, const std::string& mac) {
  const std::optional<std::string> text = TextFile::read(arpPath);
  if (!text) return "";
  // The MAC joins the pattern as given. Whatever it adds, group 1 can hold only digits and dots,
  // so the address is safe in a command line, and PCRE2's match limit bounds any pattern's cost.
  const std::string pattern = kArpLinePattern + lowerCase(mac);
  int error = 0;
  PCRE2_SIZE errorOffset = 0;
  PatternCode code(pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(), 0,
                                 &error, &errorOffset, nullptr),
                   &pcre2_code_free);
  if (!code) return "";
  MatchData match(pcre2_match_data_create_from_pattern(code.get(), nullptr),
                  &pcre2_match_data_free);
  if (!match) return "";
  std::istringstream table(*text);
  std::string line;
  while (std::getline(table, line)) {
    std::string ip = addressIn(code.get(), match.get(), line);
    if (!ip.empty()) return ip;
  }
  return "";
}

std::string TevraHelper::urlEncode(const std::string& url) {
  std::string encoded;
  for (unsigned char c : url) {
    if (std::isalnum(c) || c == '-' || c == '.' || c == '_' || c == '~') {
      encoded += static_cast<char>(c);
    } else if (c == ' ') {
      encoded += '+';
    } else {
      encoded += '%';
      encoded += kHexDigits[c >> 4];
      encoded += kHexDigits[c & 0x0f];
    }
  }
  return encoded;
}

void TevraHelper::sendKeyEvent(const std::string& key) {
  const std::string ip = getIpByMac();
  if (ip.empty()) return;
  runCommand(curlLine(kKeyEventTimeout,
                      ip + kTvControlPort + "/controller?action=keyevent&keycode=" + key));
}

void TevraHelper::powerControl(const std::string& ip, bool off) {
  runCommand(curlLine(kPowerTimeout, ip + "/cgi-bin/powerctrl.cgi?off=" + (off ? "1" : "0")));
}

void TevraHelper::playVideo(const std::string& ip, const std::string& url) {
  runCommand(curlLine(kVideoTimeout,
                      ip + kTvControlPort + "/video?action=play&url=" + urlEncode(url) +
                          "&clientname=" + kVideoClientName,
                      kVideoGap));
}

void TevraHelper::sendWakeOnLan() {
  const std::string message = "{\"command\":\"wol\",\"mac\":\"" + mac_ + "\"}";
  runCommand(DeviceTunnel::tunnelLine(DeviceTunnel::kDeviceForm, message));
}

bool TevraHelper::isAlive(const std::string& ip) {
  return !runCommand(curlLine(kAliveTimeout, ip + kTvControlPort + "/request?action=isalive"))
              .empty();
}

std::string TevraHelper::runCommand(const std::string& line) {
  return ZSHELL_CAPTURE(line, Shell::LineFeeds::kKeep);
}

}  // namespace zorvik
