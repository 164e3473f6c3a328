// RouterCommand: builds and runs the router's command lines for access, Wi-Fi and power.
#include "action/RouterCommand.h"

#include <json-c/json.h>

#include <cctype>
#include <chrono>
#include <memory>
#include <optional>
#include <thread>

#include "action/Action.h"
#include "server/Json.h"
#include "server/Log.h"
#include "server/Shell.h"
#include "server/Text.h"

namespace zorvik {
namespace {

// The router commands. The wan commands name a client by MAC and set its internet access
// ("no" blocks it); the Wi-Fi commands have a fixed line.
struct RouterLine {
  const char* command;
  const char* wanAccess;  // null for the commands that take no MAC
  const char* fixedLine;  // null for the wan commands
};

const RouterLine kRouterLines[] = {
    {"wan_block", "no", nullptr},
    {"wan_unblock", "yes", nullptr},
    {"wifi_down", nullptr, "/sbin/wifi down"},
    {"wifi_up", nullptr, "/sbin/wifi"},
};

constexpr char kMacFilterSet[] = "/usr/sbin/teldra macfilter set mac=";
constexpr char kMacFilterCommit[] = ";/usr/sbin/teldra macfilter commit";
constexpr char kShutdownLine[] = "/usr/sbin/qumbe 2 ";
constexpr char kRebootLine[] = "reboot_safe.sh";

constexpr char kMacKey[] = "mac";
constexpr char kCommandKey[] = "command";
constexpr char kDurationKey[] = "duration";

// Router lines are logged at the error level even when they succeed, as they always have been.
constexpr int kRouterLineLevel = kLogError;

// Runs the line of `entry`; the wan commands take their MAC from `source`, and without one
// log `missingMac` instead. A MAC that could change the command line runs nothing.
void runCommandWithMacFrom(const RouterLine& entry, json_object* source, const char* missingMac) {
  if (entry.wanAccess == nullptr) {
    ZSHELL_RUN_AS(kActionLogModule, kRouterLineLevel, entry.fixedLine);
    return;
  }
  json_object* macValue = Json::member(source, kMacKey);
  if (macValue == nullptr) {
    ZLOG_AS(kActionLogModule, kLogError) << missingMac;
    return;
  }
  const std::string mac = Json::text(macValue);
  if (!RouterCommand::isSafeMac(mac)) {
    ZLOG_AS(kActionLogModule, kLogError) << "brelk router mac is invalid: " << mac;
    return;
  }
  const std::string line = kMacFilterSet + mac + " wan=" + entry.wanAccess + kMacFilterCommit;
  ZSHELL_RUN_AS(kActionLogModule, kRouterLineLevel, line);
}

}  // namespace

bool RouterCommand::isSafeMac(const std::string& mac) {
  for (unsigned char c : mac) {
    if (!std::isxdigit(c) && c != ':' && c != '-') return false;
  }
  return true;
}

void RouterCommand::doRouterCommand(const std::string& payload) {
  Json::Document json = Json::parse(payload);
  if (!json) {
    ZLOG_AS(kActionLogModule, kLogError) << "brelk router payload is not json format";
    return;
  }
  json_object* command = Json::member(json.get(), kCommandKey);
  if (command == nullptr) {
    ZLOG_AS(kActionLogModule, kLogError) << "brelk router payload not contain command";
    return;
  }
  const RouterLine* entry = findWord(kRouterLines, &RouterLine::command, Json::text(command));
  if (entry == nullptr) return;
  runCommandWithMacFrom(*entry, json.get(), "brelk router payload not contain mac");
}

void RouterCommand::doRouterGroup(const std::string& command, const std::string& extra) {
  Json::Document json = Json::parse(extra);
  if (!json) {
    ZLOG_AS(kActionLogModule, kLogError) << "brelk router group extra is not json format";
    return;
  }
  const RouterLine* entry = findWord(kRouterLines, &RouterLine::command, command);
  if (entry == nullptr) return;
  runCommandWithMacFrom(*entry, json.get(),
                        "brelk router group extra not contain mac for wan block or unblock");
}

void RouterCommand::doRouterShutdown(const std::string& extra) {
  Json::Document json = Json::parse(extra);
  if (!json) {
    ZLOG_AS(kActionLogModule, kLogError) << "brelk router shutdown extra is not json format";
    return;
  }
  json_object* duration = Json::member(json.get(), kDurationKey);
  if (duration == nullptr) {
    ZLOG_AS(kActionLogModule, kLogError)
        << "brelk router shutdown extra not contain duration for shutdown";
    return;
  }
  std::thread(&RouterCommand::shutdownWorker, json_object_get_int(duration)).detach();
}

void RouterCommand::shutdownWorker(int durationMs) {
  const auto minutes =
      std::chrono::duration_cast<std::chrono::minutes>(std::chrono::milliseconds(durationMs));
  const std::string line = kShutdownLine + std::to_string(minutes.count());
  ZSHELL_RUN_AS(kActionLogModule, kRouterLineLevel, line);
}

void RouterCommand::doRouterReboot() {
  ZSHELL_RUN_AS(kActionLogModule, kRouterLineLevel, kRebootLine);
}

}  // namespace zorvik
