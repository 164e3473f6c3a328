#include "ProcessProbe.h"

#include <filesystem>
#include <fstream>
#include <sstream>

namespace zorvik {

uint64_t ProcessProbe::statusValue(const std::string& statusFile, const std::string& key) {
  std::ifstream status(statusFile);
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind(key, 0) == 0) return std::stoull(line.substr(key.size()));
  }
  return 0;
}

uint64_t ProcessProbe::residentKiB(pid_t pid) {
  return statusValue("/proc/" + std::to_string(pid) + "/status", "VmRSS:");
}

uint64_t ProcessProbe::contextSwitches(pid_t pid) {
  uint64_t switches = 0;
  std::error_code error;
  const std::filesystem::path tasks = "/proc/" + std::to_string(pid) + "/task";
  for (const auto& task : std::filesystem::directory_iterator(tasks, error)) {
    const std::string status = (task.path() / "status").string();
    switches += statusValue(status, "voluntary_ctxt_switches:") +
                statusValue(status, "nonvoluntary_ctxt_switches:");
  }
  return switches;
}

std::vector<pid_t> ProcessProbe::childrenOf(pid_t pid) {
  std::vector<pid_t> children;
  std::error_code error;
  const std::filesystem::path tasks = "/proc/" + std::to_string(pid) + "/task";
  for (const auto& task : std::filesystem::directory_iterator(tasks, error)) {
    std::ifstream list(task.path() / "children");
    pid_t child;
    while (list >> child) children.push_back(child);
  }
  return children;
}

pid_t ProcessProbe::findDescendant(pid_t root, const std::string& name) {
  std::vector<pid_t> pending = childrenOf(root);
  while (!pending.empty()) {
    const pid_t pid = pending.back();
    pending.pop_back();
    std::ifstream comm("/proc/" + std::to_string(pid) + "/comm");
    std::string processName;
    if (std::getline(comm, processName) && processName == name) return pid;
    for (pid_t child : childrenOf(pid)) pending.push_back(child);
  }
  return -1;
}

}  // namespace zorvik
