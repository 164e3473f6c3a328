#include "SandboxControl.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

namespace zorvik {
namespace {

constexpr std::chrono::milliseconds kPollStep(20);
constexpr int kStopPolls = 500;

}  // namespace

void SandboxControl::control(const std::string& line) const {
  // The sandbox holds the FIFO open for reading, so opening it to write never blocks.
  std::ofstream(folder_ + "/control") << line << std::endl;
}

std::string SandboxControl::statusFile(const std::string& name) const {
  return folder_ + "/daemon/" + name + ".status";
}

void SandboxControl::startDaemon(const std::string& name) const {
  std::filesystem::remove(statusFile(name));
  control("start " + name);
}

void SandboxControl::stopDaemon(const std::string& name) const {
  control("stop " + name);
  for (int poll = 0; poll < kStopPolls && !std::filesystem::exists(statusFile(name)); ++poll) {
    std::this_thread::sleep_for(kPollStep);
  }
}

std::string SandboxControl::dataFile(const std::string& name) const {
  return folder_ + "/etc-zorvik/" + name;
}

int SandboxControl::countLogLines(const std::string& needle) const {
  std::ifstream log(folder_ + "/syslog");
  int count = 0;
  for (std::string line; std::getline(log, line);) count += line.find(needle) != line.npos;
  return count;
}

}  // namespace zorvik
