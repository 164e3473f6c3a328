#include "DaemonProcess.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>

namespace zorvik {
namespace {

constexpr char kDaemonName[] = "zorvik";

std::string procFile(pid_t pid, const std::string& name) {
  return "/proc/" + std::to_string(pid) + "/" + name;
}

ino_t networkOf(const std::string& process) {
  struct stat status {};
  return stat(("/proc/" + process + "/ns/net").c_str(), &status) == 0 ? status.st_ino : 0;
}

std::string firstLineOf(const std::string& path) {
  std::ifstream in(path);
  std::string line;
  std::getline(in, line);
  return line;
}

// The value of one "Key:\tvalue" line of a status file (/proc/<pid>/status, a thread's
// /proc/<pid>/task/<tid>/status, or /proc/<pid>/smaps_rollup); empty when absent.
std::string statusField(const std::string& statusFile, const std::string& key) {
  std::ifstream in(statusFile);
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind(key + ":", 0) == 0) return line.substr(key.size() + 1);
  }
  return "";
}

// The number at the start of a status value; -1 when the value is absent.
long numberField(const std::string& statusFile, const std::string& key) {
  const std::string value = statusField(statusFile, key);
  return value.empty() ? -1 : std::stol(value);
}

bool isLiveDaemon(pid_t pid) {
  if (firstLineOf(procFile(pid, "comm")) != kDaemonName) return false;
  const std::string state = statusField(procFile(pid, "status"), "State");
  return state.find('Z') == std::string::npos && state.find('X') == std::string::npos;
}

}  // namespace

std::optional<DaemonProcess> DaemonProcess::find() {
  const ino_t network = networkOf("self");
  if (network == 0) return std::nullopt;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
    const std::string name = entry.path().filename().string();
    if (name.find_first_not_of("0123456789") != std::string::npos) continue;
    const pid_t pid = static_cast<pid_t>(std::stol(name));
    if (networkOf(name) == network && isLiveDaemon(pid)) return DaemonProcess(pid);
  }
  return std::nullopt;
}

long DaemonProcess::residentKiB() const { return numberField(procFile(pid_, "status"), "VmRSS"); }

long DaemonProcess::privateDirtyKiB() const {
  return numberField(procFile(pid_, "smaps_rollup"), "Private_Dirty");
}

long DaemonProcess::contextSwitches() const {
  std::error_code error;
  long switches = 0;
  for (std::filesystem::directory_iterator it(procFile(pid_, "task"), error), end;
       !error && it != end; it.increment(error)) {
    const std::string status = (it->path() / "status").string();
    switches += std::max(0L, numberField(status, "voluntary_ctxt_switches")) +
                std::max(0L, numberField(status, "nonvoluntary_ctxt_switches"));
  }
  return error ? -1 : switches;
}

}  // namespace zorvik
