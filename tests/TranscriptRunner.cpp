// Runs one transcript file (*.t) against the real request tunnel and scene manager over a store
// in a temporary folder; shell commands are recorded instead of run, log lines are captured and
// the timer thread runs. Line by line:
//   # text             a comment (blank lines are skipped too)
//   > {"command":...}  a request; consecutive requests share the lines after them: each of them
//                      must produce all of it
//   @word arguments    a directive (below), a step like a request
//   < text             the step's reply (or a directive's answer) is exactly this text
//   I Module.cpp text  a line of level I, D or E from that module with exactly this message is
//                      logged after the step and after the log line matched before it (others
//                      may come between); waited for, as actions run after their delays
//   ! E Module.cpp te  no line logged since the step begins so ("! E": no error line at all)
//   $ command line     the next command run is exactly this line (waited for); before the next
//                      step and at the end every command run must have been expected
// In any line {now}, {now+N}, {now-N} is the time in seconds since the epoch (in an expected
// line any second while the step ran). Directives:
//   @result N PREFIX   commands beginning with PREFIX return N from now on
//   @insert ID | NAME | ACTIONS [| LAUNCH]  stores a row behind the manager's back
//   @restart           a new store and manager over the same folder: what survives
//   @start [STATUS]    a restart, then the manager's start-up with the NTP status file
//                      "ntp.status" holding STATUS ("\n" a line feed; no file without);
//                      answers the start-up's pauses in ms
// The temporary folder is the working directory. Exits 0 when every line holds, else 1.
#include <chrono>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <regex>
#include <sstream>
#include <thread>

#include "scene/Scene.h"
#include "scene/SceneManager.h"
#include "server/ZorvikTunnel.h"
#include "store/DataManager.h"
#include "support/LogCapture.h"
#include "support/ShellRecorder.h"
#include "support/TempDir.h"
#include "timer/TimerEventManager.h"

namespace zorvik {
namespace {

constexpr std::chrono::seconds kPatience(10);

template <typename Done>
bool waitUntil(Done done) {
  for (const auto deadline = std::chrono::steady_clock::now() + kPatience; !done();) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

struct Line {
  int number;
  std::string text;
  char kind() const { return text[0]; }
  std::string body() const { return text.size() > 2 ? text.substr(2) : ""; }
};

// One for the whole run, never destroyed, yet reachable: the leak checker does not count it.
template <typename T>
T& kept() {
  static T* const object = new T();
  return *object;
}

class Transcript {
 public:
  // True when every line holds.
  bool run(const std::string& path) {
    std::ifstream in(path_ = path);
    std::vector<Line> lines;
    int number = 1;
    for (std::string text; std::getline(in, text); ++number)
      if (text.find_first_not_of(" #") == 0) lines.push_back({number, text});
    std::filesystem::current_path(dir_.path());
    TimerEventManager::startThread();
    restart();
    auto is = [&](size_t i, const char* kinds) {
      return i < lines.size() && std::strchr(kinds, lines[i].kind()) != nullptr;
    };
    for (size_t first = 0, steps, end; first < lines.size(); first = end) {
      for (steps = first + 1; is(first, ">") && is(steps, ">");) ++steps;
      for (end = steps; is(end, "<$IDE!");) ++end;
      for (size_t step = first; step < steps; ++step) {
        runStep(lines[step]);
        for (size_t expected = steps; expected < end; ++expected) check(lines[expected]);
      }
    }
    refuseStrayCommands();
    return !failed_;
  }

 private:
  // A new store and manager over the folder: the first ones, or what survives the old ones.
  void restart() {
    manager_.reset();
    store_.reset();
    store_ = std::make_unique<DataManager>("./", "factory.conf");
    // The start-up pauses are noted; the NTP wait thread parks in its first pause for good.
    auto sleeper = [this, runner = std::this_thread::get_id()](std::chrono::milliseconds pause) {
      while (std::this_thread::get_id() != runner) std::this_thread::sleep_for(kPatience);
      pauses_ += (pauses_.empty() ? "" : " ") + std::to_string(pause.count());
    };
    manager_ = std::make_shared<SceneManager>(store_.get(), "ntp.status", sleeper);
    commandNext_ = shell_.lines().size();  // the store's own start-up command is no step's
  }

  void runStep(const Line& step) {
    refuseStrayCommands();
    step_ = step;
    log_.clear();
    logNext_ = 0;
    stepTime_ = std::time(nullptr);
    answer_ = step.kind() == '>' ? ZorvikTunnel::getInstance().handleCommand(
                                       expand(step.body(), stepTime_), *manager_)
                                 : runDirective(step);
    stepEnd_ = std::time(nullptr);
  }

  // Runs a directive; returns its answer.
  std::string runDirective(const Line& step) {
    std::istringstream words(expand(step.text.substr(1), stepTime_));
    std::string word, first, rest;
    std::getline(words >> word >> first >> std::ws, rest);
    std::smatch row;
    static const std::regex rowFields(R"(\| (.*?) \| (.*?)(?: \| (.*))?)");
    if (word == "result") {
      shell_.setResult(rest, std::stoi(first));
    } else if (word == "insert" && std::regex_match(rest, row, rowFields)) {
      store_->insertScene(Scene(std::stoi(first), row[1], row[2], row[3]));
    } else if (word == "restart") {
      restart();
    } else if (word == "start") {
      std::filesystem::remove("ntp.status");
      if (!first.empty())
        dir_.write("ntp.status", std::regex_replace(first, std::regex(R"(\\n)"), "\n"));
      restart();
      pauses_.clear();
      manager_->start();
      // A manager whose wait thread parks in its sleeper lives on, as the daemon's does.
      if (!manager_->ntpReady())
        kept<std::vector<std::shared_ptr<SceneManager>>>().push_back(manager_);
      return pauses_;
    } else {
      fail(step, "a known directive", word);
    }
    return "";
  }

  void check(const Line& line) {
    if (line.kind() == '<' && !matches(line.body(), answer_)) fail(line, "this reply", answer_);
    if (line.kind() == '$') expectCommand(line);
    if (std::strchr("IDE", line.kind())) expectLog(line);
    if (line.kind() != '!') return;
    for (const std::string& logged : log_.entries())
      if (logged.rfind(line.body(), 0) == 0) fail(line, "no such log line", logged);
  }

  void expectLog(const Line& line) {
    std::vector<std::string> logged;
    const bool found = waitUntil([&] {
      logged = log_.entries();
      for (size_t i = logNext_; i < logged.size(); ++i)
        if (matches(line.text, logged[i])) return logNext_ = i + 1, true;
      return false;
    });
    std::string candidates;
    for (size_t i = logNext_; !found && i < logged.size(); ++i) candidates += "\n    " + logged[i];
    if (!found) fail(line, "this log line, in order, since the step", candidates);
  }

  void expectCommand(const Line& line) {
    std::vector<std::string> run;
    waitUntil([&] { return (run = shell_.lines()).size() > commandNext_; });
    const std::string actual = run.size() > commandNext_ ? run[commandNext_++] : "(none)";
    if (!matches(line.body(), actual)) fail(line, "this command next", actual);
  }

  void refuseStrayCommands() {
    const std::vector<std::string> run = shell_.lines();
    for (; commandNext_ < run.size(); ++commandNext_)
      fail(step_, "no further command after this step", run[commandNext_]);
  }

  bool matches(const std::string& expected, const std::string& actual) const {
    for (std::time_t now = stepTime_; now <= stepEnd_; ++now)
      if (expand(expected, now) == actual) return true;
    return false;
  }

  std::string expand(std::string text, std::time_t now) const {
    static const std::regex token(R"(\{now([+-][0-9]+)?\})");
    for (std::smatch found; std::regex_search(text, found, token);) {
      const std::time_t offset = found[1].matched ? std::stol(found[1]) : 0;
      text.replace(found.position(), found.length(), std::to_string(now + offset));
    }
    return text;
  }

  void fail(const Line& line, const std::string& expected, const std::string& actual) {
    std::cerr << path_ << ":" << line.number << ": expected " << expected << ":\n    " << line.text
              << "\n  actual: " << actual << "\n";
    failed_ = true;
  }

  // Recording from the first store on, and never removed: a late action never runs a command.
  ShellRecorder& shell_ = kept<ShellRecorder>();
  LogCapture& log_ = kept<LogCapture>();
  std::string path_;
  bool failed_ = false;
  TempDir dir_;
  std::unique_ptr<DataManager> store_;
  std::shared_ptr<SceneManager> manager_;
  Line step_{0, ">"};
  std::string answer_;  // the step's reply, or a directive's answer
  std::string pauses_;  // the start-up pauses, in ms
  size_t logNext_ = 0;  // where the next expected log line (since the step) is looked for
  size_t commandNext_ = 0;
  std::time_t stepTime_ = 0, stepEnd_ = 0;  // when the step began and ended, in seconds
};

}  // namespace
}  // namespace zorvik

int main(int argc, char** argv) {
  if (argc != 2 || !std::ifstream(argv[1]))
    return (std::cerr << "usage: transcript_runner FILE.t\n"), 2;
  return zorvik::Transcript().run(argv[1]) ? 0 : 1;
}
