// Acknowledged changes survive the daemon being killed: a child process makes changes and
// reports each acknowledged one through a pipe, is killed with SIGKILL in the middle of its
// work, and the parent then reopens the store and checks that every acknowledged change is
// there exactly (the change in flight at the kill may or may not have landed).
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <map>

#include "scene/Scene.h"
#include "scene/SceneManager.h"
#include "store/DataManager.h"
#include "support/ShellRecorder.h"
#include "support/TempDir.h"

namespace zorvik {
namespace {

struct Texts {
  std::string name;
  std::string actions;
  std::string launch;
  bool operator==(const Texts& other) const {
    return name == other.name && actions == other.actions && launch == other.launch;
  }
};

using Model = std::map<int32_t, Texts>;

// Every value a step writes is derived from the step number, so the parent can replay them.
std::string actionsOf(int step) {
  return R"([{"thirdParty":"quiro","type":"t","payload":"p)" + std::to_string(step) + R"("}])";
}
std::string homeOf(int step) {
  return R"({"go_home":{"mac":"AA:BB:CC:DD:EE:)" + std::to_string(step % 100) + R"("}})";
}

// The operations of one cycle of six steps: add A, add B, update A, set B's launch, remove A's
// launch, remove B. Each cycle leaves one scene behind.
enum Operation { kAddFirst, kAddSecond, kUpdate, kSetLaunch, kRemoveLaunch, kRemove, kCycle };

struct Step {
  Operation operation;
  int32_t id;  // the scene the step works on
  Texts after;
};

int32_t nextAutomaticId(const Model& model) {
  return model.empty() ? 1 : model.rbegin()->first + 1;
}

// Step `k` as it applies to `model`.
Step stepOf(int k, const Model& model) {
  const auto operation = static_cast<Operation>(k % kCycle);
  // A and B are the two newest scenes of this cycle once they exist.
  const int32_t newest = model.empty() ? 0 : model.rbegin()->first;
  switch (operation) {
    case kAddFirst:
    case kAddSecond:
      return {operation, nextAutomaticId(model), {"scene " + std::to_string(k), actionsOf(k), ""}};
    case kUpdate: {
      const int32_t a = newest - 1;
      return {operation, a, {"updated " + std::to_string(k), actionsOf(k), homeOf(k)}};
    }
    case kSetLaunch: {
      Texts b = model.at(newest);
      b.launch = homeOf(k);
      return {operation, newest, b};
    }
    case kRemoveLaunch: {
      const int32_t a = newest - 1;
      Texts texts = model.at(a);
      texts.launch = "";
      return {operation, a, texts};
    }
    default:
      return {operation, newest, {}};
  }
}

void applyStep(const Step& step, Model& model) {
  if (step.operation == kRemove) {
    model.erase(step.id);
  } else {
    model[step.id] = step.after;
  }
}

// Runs step `step` through the manager; true when the reply acknowledged it.
bool runStep(SceneManager& manager, const Step& step) {
  const std::string ok = R"({ "code": 0, "msg": "")";
  std::string reply;
  switch (step.operation) {
    case kAddFirst:
    case kAddSecond:
      reply = manager.addScene(0, step.after.name, step.after.actions, step.after.launch);
      return reply == ok + R"(, "id": )" + std::to_string(step.id) + " }";
    case kUpdate:
      reply = manager.updateScene(step.id, step.after.name, step.after.actions, step.after.launch);
      break;
    case kSetLaunch:
      reply = manager.setSceneLaunch(step.id, step.after.launch);
      break;
    case kRemoveLaunch:
      reply = manager.removeSceneLaunch(step.id);
      break;
    default:
      reply = manager.removeScene(step.id);
      break;
  }
  return reply == ok + " }";
}

Model modelAfter(int steps) {
  Model model;
  for (int k = 0; k < steps; ++k) applyStep(stepOf(k, model), model);
  return model;
}

Model storedModel(DataManager& store) {
  Model model;
  for (const auto& scene : store.getScenes()) {
    model[scene->id()] = {scene->name(), scene->actionsJson(), scene->launchJson()};
  }
  return model;
}

// The child: works through the steps until it is killed, writing each acknowledged step
// number and scene id to `out`. Never returns.
[[noreturn]] void runChild(const std::string& folder, int out) {
  DataManager store(folder, folder + "factory.conf");
  SceneManager manager(&store, folder + "ntp.status", [](std::chrono::milliseconds) {});
  Model model;
  for (int k = 0;; ++k) {
    const Step step = stepOf(k, model);
    if (!runStep(manager, step)) _exit(2);
    applyStep(step, model);
    const int32_t report[2] = {k, step.id};
    if (write(out, report, sizeof(report)) != sizeof(report)) _exit(3);
  }
}

// Reads one report; false at the end of the pipe or after `timeout`.
bool readReport(int in, int32_t (&report)[2], std::chrono::milliseconds timeout) {
  pollfd ready{in, POLLIN, 0};
  if (poll(&ready, 1, static_cast<int>(timeout.count())) <= 0) return false;
  return read(in, report, sizeof(report)) == sizeof(report);
}

TEST(StoreDurabilityTest, AcknowledgedChangesSurviveSigkill) {
  TempDir dir;
  // The store asks the router for its model; no real command may run.
  ShellRecorder shell;
  const std::string folder = dir.file("store") + "/";
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    close(fds[0]);
    runChild(folder, fds[1]);
  }
  close(fds[1]);

  // Let the child get well into its work (several complete cycles), then kill it mid-way.
  constexpr int kStepsBeforeKill = 45;
  int acknowledged = 0;
  Model replayed;
  int32_t report[2];
  while (acknowledged < kStepsBeforeKill && readReport(fds[0], report, std::chrono::seconds(30))) {
    const Step expected = stepOf(acknowledged, replayed);
    ASSERT_EQ(report[0], acknowledged);
    ASSERT_EQ(report[1], expected.id) << "step " << acknowledged;
    applyStep(expected, replayed);
    ++acknowledged;
  }
  ASSERT_EQ(acknowledged, kStepsBeforeKill) << "the child stopped early";
  ASSERT_EQ(kill(child, SIGKILL), 0);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
  // Reports written before the kill are still in the pipe.
  while (readReport(fds[0], report, std::chrono::milliseconds(0))) {
    ASSERT_EQ(report[0], acknowledged);
    applyStep(stepOf(acknowledged, replayed), replayed);
    ++acknowledged;
  }
  close(fds[0]);

  DataManager reopened(folder, folder + "factory.conf");
  const Model stored = storedModel(reopened);
  const Model acknowledgedOnly = modelAfter(acknowledged);
  const Model withInFlight = modelAfter(acknowledged + 1);
  EXPECT_TRUE(stored == acknowledgedOnly || stored == withInFlight)
      << "acknowledged steps: " << acknowledged << ", stored scenes: " << stored.size()
      << ", expected " << acknowledgedOnly.size();
  EXPECT_GE(stored.size(), static_cast<size_t>(kStepsBeforeKill / kCycle));

  // A manager over the reopened store sees the same scenes.
  SceneManager restarted(&reopened, folder + "ntp.status", [](std::chrono::milliseconds) {});
  EXPECT_EQ(restarted.getScenesCount(),
            R"({ "code": 0, "msg": "", "count": )" + std::to_string(stored.size()) + " }");
}

}  // namespace
}  // namespace zorvik
