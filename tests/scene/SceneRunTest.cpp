#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <functional>
#include <random>
#include <thread>

#include "action/Action.h"
#include "scene/Scene.h"
#include "server/ResultCode.h"
#include "support/LogCapture.h"
#include "support/ShellRecorder.h"
#include "support/TimerThread.h"
#include "timer/TimerEventManager.h"

namespace zorvik {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// A "quiro" action runs "/usr/sbin/pellway 6 '<base64 of payload>'", which makes each action's
// moment visible in the recorded commands. Base64 of a, b, c: YQ, Yg, Yw.
std::string quiro(const std::string& payload, int delay, bool block,
                  const std::string& name = "n") {
  return R"({"thirdParty":"quiro","type":"t","name":")" + name + R"(","keyName":"k","payload":")" +
         payload + R"(","delay":)" + std::to_string(delay) + R"(,"block":)" +
         (block ? "true" : "false") + "}";
}

std::string list(std::initializer_list<std::string> actions) {
  std::string text = "[";
  for (const std::string& action : actions) text += (text.size() > 1 ? "," : "") + action;
  return text + "]";
}

// The feed command of a scene whose first action is called `firstAction` (key name "k").
std::string feedOf(const std::string& scene, const std::string& firstAction) {
  return R"(/usr/sbin/vantpost '{ "type": 5, "data": { "name": ")" + scene +
         R"(", "list": [ { "name": ")" + firstAction + R"(", "keyName": "k" } ] } }')";
}

long msBetween(steady_clock::time_point from, steady_clock::time_point to) {
  return std::chrono::duration_cast<milliseconds>(to - from).count();
}

bool waitUntilIdle(const Scene& scene, milliseconds timeout = milliseconds(5000)) {
  const auto deadline = steady_clock::now() + timeout;
  while (scene.isProcessing()) {
    if (steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(milliseconds(5));
  }
  return true;
}

class SceneRunTest : public ::testing::Test {
 protected:
  void SetUp() override { startTimerThreadOnce(); }
  ShellRecorder shell;
};

TEST_F(SceneRunTest, NonBlockingActionsCountTheirDelaysFromTheSameMoment) {
  auto scene = std::make_shared<Scene>(
      1, "S", list({quiro("a", 0, false), quiro("b", 0, false), quiro("c", 0, false)}), "");
  const auto start = steady_clock::now();
  EXPECT_EQ(scene->execute(), 0u);
  ASSERT_TRUE(shell.waitForCount(3));
  auto commands = shell.commands();
  EXPECT_EQ(commands[0].line, "/usr/sbin/pellway 6 'Yg'");
  EXPECT_EQ(commands[1].line, "/usr/sbin/pellway 6 'Yw'");
  EXPECT_EQ(commands[2].line, "/usr/sbin/pellway 6 'YQ'");
  EXPECT_GE(msBetween(start, commands[0].at), 90);
  EXPECT_GE(msBetween(start, commands[2].at), 490);
  EXPECT_TRUE(waitUntilIdle(*scene));
}

TEST_F(SceneRunTest, BlockingActionReleasesItsSuccessorWhenItFinishes) {
  auto scene =
      std::make_shared<Scene>(1, "S", list({quiro("a", 300, true), quiro("b", 0, true)}), "");
  const auto start = steady_clock::now();
  scene->execute();
  ASSERT_TRUE(shell.waitForCount(2));
  auto commands = shell.commands();
  EXPECT_EQ(commands[0].line, "/usr/sbin/pellway 6 'YQ'");
  EXPECT_EQ(commands[1].line, "/usr/sbin/pellway 6 'Yg'");
  EXPECT_GE(msBetween(start, commands[0].at), 290);
  EXPECT_GE(msBetween(commands[0].at, commands[1].at), 90);
  EXPECT_TRUE(waitUntilIdle(*scene));
  EXPECT_EQ(scene->finishedCount(), 2u);
}

TEST_F(SceneRunTest, FeedReportsEachCompletedRunOfAScenesWithLaunchMode) {
  auto scene = std::make_shared<Scene>(1, "Night", list({quiro("a", 1, true, "Lamp")}),
                                       R"({"go_home":{"mac":"AA"}})");
  const std::string feed = feedOf("Night", "Lamp");
  for (int run = 1; run <= 2; ++run) {
    EXPECT_EQ(scene->execute(), 0u);
    ASSERT_TRUE(shell.waitForCount(2 * run));
    ASSERT_EQ(shell.lines().size(), 2u * run);
    // The run counts as finished when the last action's turn comes, before its own work.
    EXPECT_EQ(shell.lines()[2 * run - 2], feed);
    EXPECT_EQ(shell.lines()[2 * run - 1], "/usr/sbin/pellway 6 'YQ'");
  }
}

TEST_F(SceneRunTest, ScenesWithoutLaunchModeNeverCallTheFeed) {
  auto scene = std::make_shared<Scene>(1, "S", list({quiro("a", 1, true)}), "");
  scene->execute();
  // A feed line would come before the action's own command.
  ASSERT_TRUE(shell.waitForCount(1));
  EXPECT_EQ(shell.lines(), std::vector<std::string>{"/usr/sbin/pellway 6 'YQ'"});
}

TEST_F(SceneRunTest, QuotesInTheSceneNameCannotEndTheFeedArgument) {
  auto scene = std::make_shared<Scene>(1, "it's", list({quiro("a", 1, true)}),
                                       R"({"go_home":{"mac":"AA"}})");
  scene->execute();
  ASSERT_TRUE(shell.waitForCount(2));
  EXPECT_EQ(
      shell.lines()[0],
      R"(/usr/sbin/vantpost '{ "type": 5, "data": { "name": "it'\''s", "list": [ { "name": "n", "keyName": "k" } ] } }')");
}

TEST_F(SceneRunTest, SecondStartIsRefusedWhileRunning) {
  auto scene = std::make_shared<Scene>(1, "S", list({quiro("a", 200, true)}), "");
  EXPECT_EQ(scene->execute(), 0u);
  EXPECT_TRUE(scene->isProcessing());
  EXPECT_EQ(scene->execute(), static_cast<uint32_t>(kSceneIsProcessing));
  ASSERT_TRUE(waitUntilIdle(*scene));
  EXPECT_EQ(scene->execute(), 0u);
  EXPECT_TRUE(shell.waitForCount(2));
  ASSERT_TRUE(waitUntilIdle(*scene));
}

TEST_F(SceneRunTest, SceneWithoutValidActionsAnswersFormatError) {
  LogCapture log;
  auto scene = std::make_shared<Scene>(1, "S", "[{}]", "");
  EXPECT_EQ(scene->execute(), static_cast<uint32_t>(kParameterFormatError));
  EXPECT_FALSE(scene->isProcessing());
  EXPECT_TRUE(log.contains("Scene actions dirty"));
  EXPECT_TRUE(log.contains("Scene action size is 0"));
}

TEST_F(SceneRunTest, StopKillsPendingTimersSoNothingMoreRuns) {
  auto scene = std::make_shared<Scene>(
      1, "S", list({quiro("a", 150, false), quiro("b", 150, true)}), R"({"go_home":{"mac":"AA"}})");
  scene->stop();  // idle: nothing happens
  EXPECT_EQ(scene->execute(), 0u);
  scene->stop();
  EXPECT_FALSE(scene->isProcessing());
  EXPECT_EQ(scene->finishedCount(), 0u);
  for (const auto& action : scene->actions()) EXPECT_FALSE(action->isRunning());
  std::this_thread::sleep_for(milliseconds(400));
  EXPECT_TRUE(shell.lines().empty());
  EXPECT_EQ(scene->execute(), 0u);
  ASSERT_TRUE(shell.waitForCount(3));
  EXPECT_TRUE(waitUntilIdle(*scene));
}

TEST_F(SceneRunTest, EventThatExpiredBeforeAStopIsIgnoredByTheNextRun) {
  auto scene = std::make_shared<Scene>(1, "S", list({quiro("a", 300, true)}), "");
  scene->execute();
  auto action = scene->actions()[0];
  // The timer thread has taken the expired timer off its list but not yet delivered it when
  // the scene is stopped and started again.
  TimerEventManager::getInstance()->killTimer(action->timerId());
  scene->stop();
  EXPECT_EQ(scene->execute(), 0u);
  action->timerEvent();  // the late delivery of the first run's timer
  EXPECT_TRUE(shell.lines().empty());
  EXPECT_TRUE(action->isRunning());
  ASSERT_TRUE(shell.waitForCount(1));  // the second run's own timer
  EXPECT_TRUE(waitUntilIdle(*scene));
  EXPECT_EQ(shell.lines().size(), 1u);
}

TEST_F(SceneRunTest, PresenceMatchesIgnoringCaseOnlyForTheRightDirection) {
  auto scene = std::make_shared<Scene>(1, "S", list({quiro("a", 1, true)}),
                                       R"({"go_home":{"mac":"AA:BB:CC:DD:EE:FF"}})");
  EXPECT_FALSE(scene->startByDeviceStatus("aa:bb:cc:dd:ee:ff", false));
  EXPECT_FALSE(scene->startByDeviceStatus("aa:bb:cc:dd:ee:f", true));
  EXPECT_FALSE(scene->startByDeviceStatus("aa:bb:cc:dd:ee:00", true));
  EXPECT_TRUE(shell.lines().empty());
  EXPECT_TRUE(scene->startByDeviceStatus("aa:bb:cc:dd:ee:ff", true));
  EXPECT_TRUE(scene->isProcessing());
  EXPECT_TRUE(scene->startByDeviceStatus("AA:bb:cc:dd:ee:ff", true));  // running: still matched
  ASSERT_TRUE(waitUntilIdle(*scene));

  auto leaving = std::make_shared<Scene>(2, "L", list({quiro("a", 1, true)}),
                                         R"({"leave_home":{"mac":"m1"}})");
  EXPECT_FALSE(leaving->startByDeviceStatus("M1", true));
  EXPECT_TRUE(leaving->startByDeviceStatus("M1", false));
  ASSERT_TRUE(waitUntilIdle(*leaving));

  auto disabled = std::make_shared<Scene>(3, "D", list({quiro("a", 1, true)}),
                                          R"({"go_home":{"mac":"m1","enabled":false}})");
  EXPECT_FALSE(disabled->startByDeviceStatus("m1", true));
  auto none = std::make_shared<Scene>(4, "N", list({quiro("a", 1, true)}), "");
  EXPECT_FALSE(none->startByDeviceStatus("m1", true));
}

// Runs `body` on a thread whose stack is as small as a router's C library gives its threads.
void runOnSmallStack(const std::function<void()>& body) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, 128 * 1024);
  pthread_t thread;
  auto trampoline = [](void* argument) -> void* {
    (*static_cast<const std::function<void()>*>(argument))();
    return nullptr;
  };
  ASSERT_EQ(
      pthread_create(&thread, &attributes, trampoline, const_cast<std::function<void()>*>(&body)),
      0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

TEST_F(SceneRunTest, LongRunsOfNonBlockingActionsStartWithoutDeepRecursion) {
  std::string actions = "[";
  for (int i = 0; i < 2000; ++i) actions += std::string(i ? "," : "") + quiro("a", 60000, false);
  auto scene = std::make_shared<Scene>(1, "S", actions + "]", "");
  uint32_t result = 1;
  runOnSmallStack([&] { result = scene->execute(); });
  EXPECT_EQ(result, 0u);
  auto all = scene->actions();
  ASSERT_EQ(all.size(), 2000u);
  EXPECT_TRUE(all.front()->isRunning());
  EXPECT_TRUE(all.back()->isRunning());
  scene->stop();
  EXPECT_FALSE(all.back()->isRunning());
}

class SceneCrontabTest : public SceneRunTest {};

TEST_F(SceneCrontabTest, ReplaysShortDelaysAtTheAlarmMinuteAndLongOnesWhenShifted) {
  LogCapture log;
  auto scene = std::make_shared<Scene>(
      1, "W", list({quiro("a", 0, true, "first"), quiro("b", 120000, true, "second")}),
      R"({"timer":{"time":"07:30","repeat":"1,3"}})");
  scene->startByCrontab(2, "07:30");
  EXPECT_TRUE(shell.lines().empty());
  scene->startByCrontab(1, "07:30");
  EXPECT_EQ(shell.lines(), std::vector<std::string>{"/usr/sbin/pellway 6 'YQ'"});
  EXPECT_TRUE(log.contains("execute1: first 07:30 0ms"));
  shell.clear();
  scene->startByCrontab(3, "07:32");
  EXPECT_EQ(shell.lines(),
            (std::vector<std::string>{feedOf("W", "first"), "/usr/sbin/pellway 6 'Yg'"}));
  EXPECT_TRUE(log.contains("execute1: second 07:30 120000ms"));
  EXPECT_FALSE(scene->isProcessing());
}

TEST_F(SceneCrontabTest, LastActionReportsToTheFeedBeforeItsOwnWork) {
  auto scene = std::make_shared<Scene>(1, "W", list({quiro("a", 0, true, "L")}),
                                       R"({"timer":{"time":"07:30","repeat":"1"}})");
  scene->startByCrontab(1, "07:30");
  EXPECT_EQ(shell.lines(),
            (std::vector<std::string>{feedOf("W", "L"), "/usr/sbin/pellway 6 'YQ'"}));
}

TEST_F(SceneCrontabTest, ShiftedDelaysCrossMidnightAndTheWeekBoundary) {
  // Saturday 23:50 plus 20 minutes is Sunday 00:10.
  auto scene = std::make_shared<Scene>(1, "W", list({quiro("a", 1200000, true)}),
                                       R"({"timer":{"time":"23:50","repeat":"6"}})");
  scene->startByCrontab(6, "00:10");
  EXPECT_TRUE(shell.lines().empty());
  scene->startByCrontab(0, "00:10");
  EXPECT_EQ(shell.lines(),
            (std::vector<std::string>{feedOf("W", "n"), "/usr/sbin/pellway 6 'YQ'"}));
}

TEST_F(SceneCrontabTest, OnceAlarmReplaysWithinAMinuteAfterItsDueTime) {
  LogCapture log;
  const int64_t due = 1700000000000;  // ms since the epoch
  auto scene = std::make_shared<Scene>(
      1, "O", list({quiro("a", 0, true, "x"), quiro("b", 30000, true, "y")}),
      R"({"timer":{"utc_time":1700000000000}})");
  scene->startByCrontab(1, "99:99", due / 1000 - 1);  // before: nothing
  EXPECT_TRUE(shell.lines().empty());
  scene->startByCrontab(1, "99:99", due / 1000 + 40);  // 40 s late: only "a" (b is due at 30 s)
  EXPECT_EQ(shell.lines(), (std::vector<std::string>{"/usr/sbin/pellway 6 'YQ'", feedOf("O", "x"),
                                                     "/usr/sbin/pellway 6 'Yg'"}));
  EXPECT_TRUE(log.contains("execute1 once: x  0ms"));
  EXPECT_TRUE(log.contains("execute1 once: y  30000ms"));
  shell.clear();
  scene->startByCrontab(1, "99:99", due / 1000 + 70);  // a is past its minute, b is not
  EXPECT_EQ(shell.lines(),
            (std::vector<std::string>{feedOf("O", "x"), "/usr/sbin/pellway 6 'Yg'"}));
}

TEST_F(SceneRunTest, SceneDroppedWhileItsTimersArePendingNeverRunsThem) {
  {
    auto scene =
        std::make_shared<Scene>(1, "S", list({quiro("a", 100, false), quiro("b", 100, true)}), "");
    scene->execute();
  }
  std::this_thread::sleep_for(milliseconds(400));
  EXPECT_TRUE(shell.lines().empty());
}

// A handler that blocks until released, to act on the scene while its action is working.
class GatedShell : public Shell::Backend {
 public:
  int system(const std::string&) override {
    std::unique_lock<std::mutex> lock(mutex_);
    entered_ = true;
    changed_.notify_all();
    changed_.wait(lock, [this] { return released_; });
    return 0;
  }
  std::optional<std::string> capture(const std::string&) override { return ""; }
  void waitEntered() {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return entered_; });
  }
  void release() {
    std::lock_guard<std::mutex> lock(mutex_);
    released_ = true;
    changed_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool entered_ = false;   // guarded by mutex_
  bool released_ = false;  // guarded by mutex_
};

TEST(SceneOwnershipTest, SceneRebuiltAndDroppedWhileAHandlerRunsStaysSafe) {
  startTimerThreadOnce();
  auto gate = std::make_shared<GatedShell>();
  auto previous = Shell::setBackend(gate);
  auto scene = std::make_shared<Scene>(1, "S", list({quiro("a", 1, true)}), "");
  scene->execute();
  gate->waitEntered();
  // The handler is inside its command: re-run with new actions, then drop the scene.
  EXPECT_FALSE(scene->isProcessing());
  scene->setActionsJson(list({quiro("b", 50, true)}));
  EXPECT_EQ(scene->execute(), 0u);
  scene->stop();
  std::weak_ptr<Scene> watcher = scene;
  scene.reset();
  gate->release();
  for (int i = 0; i < 200 && !watcher.expired(); ++i) std::this_thread::sleep_for(milliseconds(5));
  EXPECT_TRUE(watcher.expired());
  Shell::setBackend(previous);
}

TEST_F(SceneRunTest, ConcurrentStartsStopsRebuildsAndDropsStayConsistent) {
  std::atomic<bool> done{false};
  std::vector<std::shared_ptr<Scene>> scenes;
  for (int i = 0; i < 4; ++i) {
    scenes.push_back(std::make_shared<Scene>(
        i, "S", list({quiro("a", 1, false), quiro("b", 2, true), quiro("c", 0, true)}),
        i % 2 ? R"({"go_home":{"mac":"m"}})" : ""));
  }
  std::mutex scenesMutex;
  auto worker = [&](unsigned seed) {
    std::mt19937 random(seed);
    while (!done.load()) {
      std::shared_ptr<Scene> scene;
      {
        std::lock_guard<std::mutex> lock(scenesMutex);
        scene = scenes[random() % scenes.size()];
      }
      switch (random() % 5) {
        case 0:
          scene->execute();
          break;
        case 1:
          scene->stop();
          break;
        case 2:
          scene->stop();
          scene->setActionsJson(list({quiro("d", 1, random() % 2 == 0), quiro("e", 1, true)}));
          scene->execute();
          break;
        case 3: {
          std::lock_guard<std::mutex> lock(scenesMutex);
          scenes[random() % scenes.size()] = std::make_shared<Scene>(
              9, "N", list({quiro("f", 1, false), quiro("g", 1, true)}), "");
          break;
        }
        default:
          scene->isProcessing();
          json_object_put(scene->toJson());
          break;
      }
      std::this_thread::sleep_for(std::chrono::microseconds(random() % 2000));
    }
  };
  std::vector<std::thread> threads;
  for (unsigned t = 0; t < 3; ++t) threads.emplace_back(worker, t + 1);
  std::this_thread::sleep_for(milliseconds(1500));
  done = true;
  for (auto& thread : threads) thread.join();
  for (auto& scene : scenes) scene->stop();
  EXPECT_GT(shell.lines().size(), 0u);
  for (auto& scene : scenes) EXPECT_FALSE(scene->isProcessing());
}

}  // namespace
}  // namespace zorvik
