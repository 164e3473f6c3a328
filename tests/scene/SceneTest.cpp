// The scene engine in time and across threads: how a run chains its actions, what stop, a stale
// timer event and a dropped scene leave behind, a scene answering and living on while its
// command runs, the manager's wait for a trusted clock, and many callers at once; and the reply
// text a scene keeps. Each "quiro" action records "/usr/sbin/pellway 6 '<base64 of its payload>'".
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <functional>
#include <future>
#include <thread>

#include "action/Action.h"
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

using std::chrono::milliseconds;
using Lines = std::vector<std::string>;
using Actions = std::vector<std::tuple<char, int, bool>>;  // payload, delay, block
const char kOk[] = R"({ "code": 0, "msg": "" })";

std::shared_ptr<Scene> sceneOf(const Actions& actions) {
  TimerEventManager::startThread();
  std::string text;
  for (const auto& [payload, delay, block] : actions) {
    text += std::string(text.empty() ? "[" : ",") +
            R"({"thirdParty":"quiro","type":"t","payload":")" + payload + R"(","delay":)" +
            std::to_string(delay) + (block ? "}" : R"(,"block":false})");
  }
  return std::make_shared<Scene>(1, "S", text + "]", "");
}

std::string pellway(const std::string& base64) { return "/usr/sbin/pellway 6 '" + base64 + "'"; }

// Non-blocking successors start at once; a delay below 1 waits 500 ms first and 100 ms later. A
// blocking action releases its successor when it runs, whose delay counts from then. The machine
// may be slow: the bounds are lower bounds only.
TEST(SceneRunTest, ActionsRunInOrderOfTheirDelaysAndBlockingRules) {
  const std::tuple<Actions, Lines, std::vector<int>> rows[] = {
      // payloads a, b, c: YQ, Yg, Yw
      {{{'a', 0, false}, {'b', -5, false}, {'c', 0, false}}, {"Yg", "Yw", "YQ"}, {90, 90, 490}},
      {{{'a', 300, true}, {'b', 0, true}}, {"YQ", "Yg"}, {290, 390}}};
  for (const auto& [actions, order, atLeastMs] : rows) {
    ShellRecorder shell;
    const auto scene = sceneOf(actions);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(scene->execute(), 0u);
    ASSERT_TRUE(shell.waitForCount(order.size()));
    EXPECT_FALSE(scene->isProcessing());  // the run was over when the last action's turn came
    const std::vector<ShellRecorder::Command> commands = shell.commands();
    for (size_t i = 0; i < order.size(); ++i) {
      EXPECT_EQ(commands[i].line, pellway(order[i]));
      EXPECT_GE(commands[i].at - start, milliseconds(atLeastMs[i])) << order[i];
    }
  }
}

// Stop kills a run's pending timers, and a scene dropped with timers pending runs nothing more.
// An event that expired before a stop is ignored by the next run: the timer thread has taken the
// timer off its list but not yet delivered it when the scene is stopped and started again.
TEST(SceneRunTest, StopDropAndAStaleEventLeaveNothingToRun) {
  ShellRecorder shell;
  const auto stopped = sceneOf({{'a', 100, false}, {'b', 100, true}});
  EXPECT_EQ(stopped->execute(), 0u);
  stopped->stop();
  EXPECT_FALSE(stopped->isProcessing());
  for (const auto& action : stopped->actions()) EXPECT_FALSE(action->isRunning());
  sceneOf({{'a', 100, false}, {'b', 100, true}})->execute();  // and dropped at once
  const auto scene = sceneOf({{'c', 300, true}});
  scene->execute();
  const std::shared_ptr<Action> action = scene->actions()[0];
  TimerEventManager::getInstance()->killTimer(action->timerId());
  scene->stop();
  EXPECT_EQ(scene->execute(), 0u);
  action->timerEvent();  // the late event
  EXPECT_EQ(shell.lines(), Lines{});
  EXPECT_TRUE(action->isRunning());
  ASSERT_TRUE(shell.waitForCount(1));  // the second run's own timer, after the others' turns
  EXPECT_EQ(shell.lines(), Lines{pellway("Yw")});
}

// The timer thread takes a scene's action turns under its lock, and no timer may wait for a
// command: the scene answers while a replayed handler, the feed program or an action's handler
// runs. A scene rebuilt and dropped meanwhile lives, with the action, until the handler ends.
TEST(SceneRunTest, SceneAnswersWhileItsCommandRunsAndLivesUntilItEnds) {
  TimerEventManager::startThread();
  const struct {
    const char *blocked, *actions, *launch;
    bool replay;      // started by the crontab tick, else a run on the timer thread
    bool processing;  // a run is over only once its end is reported
  } cases[] = {
      {"/sbin/wifi", R"([{"thirdParty":"brelkrouter","type":"t","payload":{"command":"wifi_up"}}])",
       R"({"timer":{"time":"07:30","repeat":"1"}})", true, false},
      {"/usr/sbin/vantpost", R"([{"thirdParty":"x","type":"t","delay":1}])",
       R"({"go_home":{"mac":"AA:BB"}})", false, true},
      {"/usr/sbin/pellway", R"([{"thirdParty":"quiro","type":"t","delay":1}])", "", false, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.blocked);
    ShellRecorder shell;
    std::promise<void> entered, opened;  // the command's start, and the gate the test opens
    shell.setResult(c.blocked, [&](const std::string&) {
      entered.set_value();
      opened.get_future().wait();
      return 0;
    });
    auto scene = std::make_shared<Scene>(1, "A", c.actions, c.launch);
    auto started = std::async(std::launch::async, [&] {
      c.replay ? scene->startByCrontab(1, "07:30") : static_cast<void>(scene->execute());
    });
    ASSERT_EQ(entered.get_future().wait_for(std::chrono::seconds(5)), std::future_status::ready);
    auto answer = std::async(std::launch::async, [&scene] { return scene->isProcessing(); });
    const bool answered = answer.wait_for(std::chrono::seconds(1)) == std::future_status::ready;
    EXPECT_TRUE(answered);
    if (answered) {
      EXPECT_EQ(answer.get(), c.processing);
    }
    const std::weak_ptr<Scene> watcher = scene;
    std::weak_ptr<Action> action;
    if (answered && !c.replay) {  // rebuilt (which lets go of the action once the run is over)
      action = scene->actions()[0];
      scene->setActionsJson("[]");
      EXPECT_EQ(scene->execute(), c.processing ? 3505u : 3u);
      started.wait();
      scene.reset();
      EXPECT_FALSE(action.expired() || watcher.expired());  // the timer thread holds both
    }
    opened.set_value();
    started.wait();
    scene.reset();
    for (int i = 0; i < 400 && !watcher.expired(); ++i)
      std::this_thread::sleep_for(milliseconds(5));
    EXPECT_TRUE(action.expired() && watcher.expired());
  }
}

TEST(SceneRunTest, LongRunsOfNonBlockingActionsStartWithoutDeepRecursion) {
  const auto scene = sceneOf(Actions(2000, {'a', 60000, false}));
  // A thread with a stack as small as a router's C library gives its threads.
  pthread_attr_t small;
  pthread_attr_init(&small);
  pthread_attr_setstacksize(&small, 128 * 1024);
  pthread_t thread;
  auto run = [](void* scene) -> void* { return static_cast<Scene*>(scene)->execute(), nullptr; };
  ASSERT_EQ(pthread_create(&thread, &small, run, scene.get()), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&small);
  ASSERT_EQ(scene->actionCount(), 2000u);
  EXPECT_TRUE(scene->actions().back()->isRunning());
  scene->stop();
}

// A scene keeps its reply text from one reply to the next: it must still read as the scene does
// now after each kind of change, and lose a one-time timer launch once its instant has passed.
TEST(SceneReplyTest, KeptReplyTextFollowsEveryChangeAndAPassingOneTimeLaunch) {
  const int64_t at = 4102444800000;  // the launch's instant, in ms
  const std::function<void(Scene&)> changes[] = {
      [](Scene& scene) { scene.setId(2); },
      [](Scene& scene) { scene.setName("B"); },
      [](Scene& scene) { scene.setActionsJson("[]"); },
      [](Scene& scene) { scene.setLaunchJson(R"({"go_home":{"mac":"AA"}})"); },
  };
  for (const auto& change : changes) {
    Scene scene(1, "A", "[1]", R"({"timer":{"utc_time":4102444800000}})");
    const std::string before = scene.replyText(at);
    EXPECT_NE(before.find("\"launch\""), std::string::npos);
    EXPECT_EQ(scene.replyText(at + 1), R"({ "id": 1, "name": "A", "action_list": [ 1 ] })");
    change(scene);
    EXPECT_NE(scene.replyText(at), before);
  }
}

class SceneManagerThreadsTest : public ::testing::Test {
 protected:
  TempDir dir;
  ShellRecorder shell;
  DataManager store{dir.file("store") + "/", dir.file("factory.conf")};
  LogCapture log;
  std::vector<milliseconds> pauses;
  // Its pauses are recorded; the clock turns OK at the 23rd.
  SceneManager manager{&store, dir.file("ntp.status"), [this](milliseconds pause) {
                         pauses.push_back(pause);
                         if (pauses.size() == 23) dir.write("ntp.status", "OK\n");
                       }};
};

// The first polls and the start-up are in scene/manager.t; this is the whole schedule.
TEST_F(SceneManagerThreadsTest, WaitLoopPausesFiveSecondsTwentyTimesThenTwenty) {
  manager.ntpWaitLoop();
  std::vector<milliseconds> expectedPauses(23, milliseconds(20000));
  std::fill_n(expectedPauses.begin(), 20, milliseconds(5000));
  EXPECT_EQ(pauses, expectedPauses);
  Lines logged;  // the manager's info lines; the timer thread may log meanwhile
  for (const std::string& entry : log.entries())
    if (entry.rfind("I SceneManager.cpp ", 0) == 0) logged.push_back(entry.substr(19));
  ASSERT_EQ(logged.size(), 24u);
  EXPECT_EQ(logged[19], "Waiting for ntp status ok, times: 20 duration: 5");
  EXPECT_EQ(logged[22], "Waiting for ntp status ok, times: 23 duration: 20");
  EXPECT_EQ(logged[23], "Ntp status ok, now add existing alarm");
  EXPECT_TRUE(manager.ntpReady());
}

// Three callers at once through the tunnel, each adding, changing, starting, stopping and
// removing scenes of its own while presence events start everybody's and crontab ticks read
// their alarms: each gets its own replies, and in the end the registry and the store agree row
// by row.
TEST_F(SceneManagerThreadsTest, ConcurrentCallersKeepRegistryAndStoreInStep) {
  TimerEventManager::startThread();
  const std::string rest =
      R"(","launch":{"go_home":{"mac":"AA"}},"action_list":[{"thirdParty":"quiro","type":"t",)"
      R"("payload":"a","delay":1,"block":false},{"thirdParty":"quiro","type":"t","delay":2}]})";
  auto caller = [&](int t) {
    const auto call = [&](const std::string& command, const std::string& members) {
      return ZorvikTunnel::getInstance().handleCommand(
          R"({"command":")" + command + "\"," + members, manager);
    };
    for (int i = 0; i < 30; ++i) {
      const std::string name = std::to_string(t) + "-" + std::to_string(i);
      const std::string added = call("scene_setting", R"("name":")" + name + rest);
      const std::string id = R"("id":)" + std::to_string(std::atoi(&added[added.rfind(':') + 1]));
      call("scene_start", id + "}");  // 0, or 3505 when a presence event came first
      call("scene_start_by_device_status", R"("mac":"aa","connected":true})");
      EXPECT_EQ(call("scene_update", id + R"(,"name":")" + name + "!" + rest), kOk) << added;
      EXPECT_NE(call("get_single_scene_setting", id + "}").find(name + "!"), std::string::npos);
      EXPECT_EQ(call(i % 3 ? "scene_stop" : "scene_delete", id + "}"), kOk);
    }
  };
  std::vector<std::thread> callers;
  for (int t = 0; t < 3; ++t) callers.emplace_back(caller, t);
  // Meanwhile crontab ticks and status records read every scene's alarm.
  callers.emplace_back([&] {
    for (int i = 0; i < 30; ++i) manager.startSceneByCrontab(1, "07:30");
  });
  callers.emplace_back([&] {
    for (int i = 0; i < 30; ++i) manager.recordSceneByCrontab();
  });
  for (std::thread& thread : callers) thread.join();
  for (int id = 1; id <= 90; ++id) manager.stopScene(id);
  EXPECT_EQ(manager.getScenesCount(), R"({ "code": 0, "msg": "", "count": 60 })");
  EXPECT_EQ(SceneManager(&store, "").getAllScenes(), manager.getAllScenes());
  EXPECT_GT(shell.lines().size(), 0u);
}

}  // namespace
}  // namespace zorvik
