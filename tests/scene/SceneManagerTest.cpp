#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <atomic>
#include <filesystem>
#include <optional>
#include <thread>

#include "scene/Scene.h"
#include "scene/SceneManager.h"
#include "store/DataManager.h"
#include "support/LogCapture.h"
#include "support/ShellRecorder.h"
#include "support/TempDir.h"
#include "support/TimerThread.h"

namespace zorvik {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const char kOk[] = R"({ "code": 0, "msg": "" })";
const char kStoreFailed[] = R"({ "code": 3501, "msg": "update database failed" })";
const char kNotFound[] = R"({ "code": 3502, "msg": "scene not found" })";
const char kProcessing[] = R"({ "code": 3505, "msg": "scene is processing" })";
const char kNoHomeLaunch[] = R"({ "code": 3506, "msg": "scene has not home launch mode" })";
const char kNoAction[] = R"({ "code": 3, "msg": "parameter format error" })";
const char kIdle[] = R"({ "code": 0, "msg": "", "processing": 0 })";
const char kRunning[] = R"({ "code": 0, "msg": "", "processing": 1 })";

// One device-tunnel action: when it runs, "/usr/sbin/pellway ..." is recorded.
std::string tunnelAction(int delay) {
  return R"([{"thirdParty":"quiro","type":"t","payload":"a","delay":)" + std::to_string(delay) +
         "}]";
}
// Long enough that a started scene is still running when the test looks.
const std::string kLongAction = tunnelAction(60000);
const char kPellway[] = "/usr/sbin/pellway";
const std::string kHome = R"({"go_home":{"mac":"AA:BB:CC:DD:EE:FF"}})";

std::string idReply(int id) {
  return R"({ "code": 0, "msg": "", "id": )" + std::to_string(id) + " }";
}

std::string countReply(size_t count) {
  return R"({ "code": 0, "msg": "", "count": )" + std::to_string(count) + " }";
}

// A second connection that holds the database locked while it lives.
class DatabaseLock {
 public:
  explicit DatabaseLock(const std::string& path) {
    sqlite3_open(path.c_str(), &db_);
    locked_ = sqlite3_exec(db_, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr) == SQLITE_OK;
  }
  ~DatabaseLock() {
    sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
    sqlite3_close(db_);
  }
  bool locked() const { return locked_; }

 private:
  sqlite3* db_ = nullptr;
  bool locked_ = false;
};

class SceneManagerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    startTimerThreadOnce();
    store = std::make_unique<DataManager>(dir.file("store") + "/", dir.file("factory.conf"));
  }

  void TearDown() override {
    // Stop whatever still runs, so no timer of this test fires during the next one.
    if (manager) {
      for (int id : {1, 2, 3, 4, 5, 7}) manager->stopScene(id);
    }
  }

  // The manager under test; by default its pauses return at once.
  SceneManager& open(SceneManager::Sleeper sleeper = [](milliseconds) {}) {
    manager =
        std::make_unique<SceneManager>(store.get(), dir.file("ntp.status"), std::move(sleeper));
    return *manager;
  }

  std::vector<std::string> storedNames() {
    std::vector<std::string> names;
    for (const auto& scene : store->getScenes()) names.push_back(scene->name());
    return names;
  }

  // The stored name, action list and launch of a scene.
  std::vector<std::string> storedTexts(int id) {
    Scene stored;
    EXPECT_TRUE(store->getScene(id, stored)) << id;
    return {stored.name(), stored.actionsJson(), stored.launchJson()};
  }

  size_t pellwayCount() {
    size_t count = 0;
    for (const std::string& line : shell.lines()) count += line.rfind(kPellway, 0) == 0;
    return count;
  }

  // Starts capturing the log afresh. The capture lives inside the fixture, on the heap: on the
  // stack its mutex could share an address with another test's stack mutex, and the thread
  // checker would take the two for one lock.
  LogCapture& captureLog() {
    capture_.reset();
    capture_.emplace();
    return *capture_;
  }

  TempDir dir;
  ShellRecorder shell;
  std::unique_ptr<DataManager> store;
  std::unique_ptr<SceneManager> manager;
  std::optional<LogCapture> capture_;
};

// --- adding and the id rules ---

TEST_F(SceneManagerTest, FirstAutomaticIdOnAnEmptyRegistryIsOne) {
  SceneManager& scenes = open();
  EXPECT_EQ(scenes.addScene(0, "a", "[]", ""), idReply(1));
  EXPECT_EQ(scenes.addScene(-5, "b", "[]", ""), idReply(2));
  EXPECT_EQ(scenes.addScene(29999, "c", "[]", ""), idReply(3));
  EXPECT_THAT(storedNames(), ElementsAre("a", "b", "c"));
}

TEST_F(SceneManagerTest, AutomaticIdFollowsTheLargestLoadedId) {
  ASSERT_TRUE(store->insertScene(Scene(1, "one", "[]", "")));
  ASSERT_TRUE(store->insertScene(Scene(4, "four", "[]", "")));
  ASSERT_TRUE(store->insertScene(Scene(2, "two", "[]", "")));
  SceneManager& scenes = open();
  EXPECT_EQ(scenes.getScenesCount(), countReply(3));
  EXPECT_EQ(scenes.addScene(2, "five", "[]", ""), idReply(5));
}

TEST_F(SceneManagerTest, LargeIdsAreKeptAndExhaustAutomaticIds) {
  SceneManager& scenes = open();
  EXPECT_EQ(scenes.addScene(30005, "big", "[]", ""), idReply(30005));
  EXPECT_EQ(scenes.addScene(0, "next", "[]", ""), kStoreFailed);
  EXPECT_EQ(scenes.addScene(30005, "again", "[]", ""), kStoreFailed);
  EXPECT_EQ(scenes.addScene(2147483647, "max", "[]", ""), idReply(2147483647));
  EXPECT_EQ(scenes.addScene(7, "after max", "[]", ""), kStoreFailed);
  EXPECT_EQ(scenes.getScenesCount(), countReply(2));
  EXPECT_THAT(storedNames(), ElementsAre("big", "max"));
}

TEST_F(SceneManagerTest, AutomaticIdOverTheLimitFails) {
  ASSERT_TRUE(store->insertScene(Scene(29999, "last", "[]", "")));
  SceneManager& scenes = open();
  EXPECT_EQ(scenes.addScene(0, "none left", "[]", ""), kStoreFailed);
  EXPECT_THAT(storedNames(), ElementsAre("last"));
}

// --- reading ---

TEST_F(SceneManagerTest, ReadRepliesCarryTheScenesInListOrder) {
  SceneManager& scenes = open();
  EXPECT_EQ(scenes.getAllScenes(), R"({ "code": 0, "msg": "", "scene_list": [ ] })");
  EXPECT_EQ(scenes.getScenesCount(), countReply(0));
  EXPECT_EQ(scenes.startSceneByDeviceStatus("AA:BB:CC:DD:EE:FF", true), kNoHomeLaunch);
  ASSERT_EQ(scenes.addScene(0, "a", "[]", kHome), idReply(1));
  ASSERT_EQ(scenes.addScene(0, "b", R"([{"x":1}])", ""), idReply(2));
  ASSERT_EQ(scenes.addScene(0, "c", "not json", ""), idReply(3));

  const std::string a =
      R"({ "id": 1, "name": "a", "action_list": [ ], "launch": { "go_home": { "mac": "AA:BB:CC:DD:EE:FF" } } })";
  const std::string b = R"({ "id": 2, "name": "b", "action_list": [ { "x": 1 } ] })";
  const std::string c = R"({ "id": 3, "name": "c" })";
  EXPECT_EQ(scenes.getAllScenes(),
            R"({ "code": 0, "msg": "", "scene_list": [ )" + a + ", " + b + ", " + c + " ] }");
  EXPECT_EQ(scenes.getSingleScene(2), R"({ "code": 0, "msg": "", "scene": )" + b + " }");
  EXPECT_EQ(scenes.getSingleScene(9), kOk);
  EXPECT_EQ(scenes.getMultipleScene(2, 3),
            R"({ "code": 0, "msg": "", "scene_list": [ )" + b + ", " + c + " ] }");
  EXPECT_EQ(scenes.getMultipleScene(3, 2), R"({ "code": 0, "msg": "", "scene_list": [ ] })");
  EXPECT_EQ(scenes.getScenesCount(), countReply(3));
}

// --- unknown ids ---

TEST_F(SceneManagerTest, UnknownIdsAreNotFound) {
  SceneManager& scenes = open();
  ASSERT_EQ(scenes.addScene(0, "a", "[]", ""), idReply(1));
  EXPECT_EQ(scenes.updateScene(2, "x", "[]", ""), kNotFound);
  EXPECT_EQ(scenes.startScene(2), kNotFound);
  EXPECT_EQ(scenes.stopScene(2), kNotFound);
  EXPECT_EQ(scenes.setSceneLaunch(2, kHome), kNotFound);
  EXPECT_EQ(scenes.removeSceneLaunch(2), kNotFound);
  EXPECT_EQ(scenes.removeScene(2), kNotFound);
  EXPECT_EQ(scenes.isSceneProcessing(2), kNotFound);
  EXPECT_THAT(storedNames(), ElementsAre("a"));
}

// --- running ---

TEST_F(SceneManagerTest, StartNeedsAnActionIsRefusedWhileRunningAndStopEndsTheRun) {
  SceneManager& scenes = open();
  ASSERT_EQ(scenes.addScene(0, "long", kLongAction, ""), idReply(1));
  ASSERT_EQ(scenes.addScene(0, "empty", "[]", ""), idReply(2));
  EXPECT_EQ(scenes.startScene(2), kNoAction);  // no valid action
  EXPECT_EQ(scenes.isSceneProcessing(2), kIdle);
  EXPECT_EQ(scenes.isSceneProcessing(1), kIdle);
  EXPECT_EQ(scenes.startScene(1), kOk);
  EXPECT_EQ(scenes.startScene(1), kProcessing);
  EXPECT_EQ(scenes.isSceneProcessing(1), kRunning);
  EXPECT_EQ(scenes.stopScene(1), kOk);
  EXPECT_EQ(scenes.isSceneProcessing(1), kIdle);
  EXPECT_EQ(scenes.stopScene(1), kOk);
  EXPECT_EQ(scenes.startScene(1), kOk);
}

TEST_F(SceneManagerTest, StartedSceneRunsItsAction) {
  SceneManager& scenes = open();
  ASSERT_EQ(scenes.addScene(0, "short", tunnelAction(50), ""), idReply(1));
  shell.clear();
  EXPECT_EQ(scenes.startScene(1), kOk);
  ASSERT_TRUE(shell.waitForCount(1));
  EXPECT_EQ(shell.lines()[0].rfind(kPellway, 0), 0u);
}

TEST_F(SceneManagerTest, DevicePresenceStartsEveryMatchingScene) {
  SceneManager& scenes = open();
  ASSERT_EQ(scenes.addScene(0, "home 1", kLongAction, kHome), idReply(1));
  ASSERT_EQ(scenes.addScene(0, "plain", kLongAction, ""), idReply(2));
  ASSERT_EQ(scenes.addScene(0, "home 2", kLongAction, R"({"go_home":{"mac":"aa:bb:cc:dd:ee:ff"}})"),
            idReply(3));
  ASSERT_EQ(
      scenes.addScene(0, "leave", kLongAction, R"({"leave_home":{"mac":"AA:BB:CC:DD:EE:FF"}})"),
      idReply(4));

  EXPECT_EQ(scenes.startSceneByDeviceStatus("aa:bb:cc:dd:ee:ff", true), kOk);
  EXPECT_EQ(scenes.isSceneProcessing(1), kRunning);
  EXPECT_EQ(scenes.isSceneProcessing(2), kIdle);
  EXPECT_EQ(scenes.isSceneProcessing(3), kRunning);
  EXPECT_EQ(scenes.isSceneProcessing(4), kIdle);
  // A scene that is already running still counts as matched.
  EXPECT_EQ(scenes.startSceneByDeviceStatus("AA:BB:CC:DD:EE:FF", true), kOk);
  EXPECT_EQ(scenes.startSceneByDeviceStatus("AA:BB:CC:DD:EE:00", true), kNoHomeLaunch);
  EXPECT_EQ(scenes.startSceneByDeviceStatus("AA:BB:CC:DD:EE:FF", false), kOk);
  EXPECT_EQ(scenes.isSceneProcessing(4), kRunning);
}

TEST_F(SceneManagerTest, CrontabTickReplaysTheActionsDueNow) {
  SceneManager& scenes = open();
  ASSERT_EQ(
      scenes.addScene(0, "weekly", tunnelAction(0), R"({"timer":{"time":"07:30","repeat":"1,3"}})"),
      idReply(1));
  EXPECT_EQ(scenes.startSceneByCrontab(2, "07:30"), kOk);
  EXPECT_EQ(pellwayCount(), 0u);
  EXPECT_EQ(scenes.startSceneByCrontab(3, "07:30"), kOk);
  EXPECT_EQ(pellwayCount(), 1u);
}

// --- changing ---

TEST_F(SceneManagerTest, UpdateStopsTheRunAndReplacesStoredAndLiveTexts) {
  SceneManager& scenes = open();
  ASSERT_EQ(scenes.addScene(0, "old", kLongAction, ""), idReply(1));
  ASSERT_EQ(scenes.startScene(1), kOk);
  EXPECT_EQ(scenes.updateScene(1, "new", "[]", kHome), kOk);
  EXPECT_EQ(scenes.isSceneProcessing(1), kIdle);
  EXPECT_EQ(
      scenes.getSingleScene(1),
      R"({ "code": 0, "msg": "", "scene": { "id": 1, "name": "new", "action_list": [ ], "launch": { "go_home": { "mac": "AA:BB:CC:DD:EE:FF" } } } })");
  EXPECT_THAT(storedTexts(1), ElementsAre("new", "[]", kHome));
  // The new actions are the ones that run now.
  EXPECT_EQ(scenes.startScene(1), kNoAction);
  EXPECT_EQ(scenes.startSceneByDeviceStatus("AA:BB:CC:DD:EE:FF", true), kOk);
}

TEST_F(SceneManagerTest, LaunchIsSetAndRemovedInStoreAndRegistry) {
  SceneManager& scenes = open();
  ASSERT_EQ(scenes.addScene(0, "s", kLongAction, ""), idReply(1));
  EXPECT_EQ(scenes.startSceneByDeviceStatus("AA:BB:CC:DD:EE:FF", true), kNoHomeLaunch);

  ASSERT_EQ(scenes.startScene(1), kOk);
  EXPECT_EQ(scenes.setSceneLaunch(1, kHome), kOk);
  EXPECT_EQ(scenes.isSceneProcessing(1), kIdle);
  EXPECT_THAT(storedTexts(1), ElementsAre("s", kLongAction, kHome));
  EXPECT_EQ(scenes.startSceneByDeviceStatus("AA:BB:CC:DD:EE:FF", true), kOk);

  EXPECT_EQ(scenes.removeSceneLaunch(1), kOk);
  EXPECT_EQ(scenes.isSceneProcessing(1), kIdle);
  EXPECT_THAT(storedTexts(1), ElementsAre("s", kLongAction, ""));
  EXPECT_EQ(scenes.startSceneByDeviceStatus("AA:BB:CC:DD:EE:FF", true), kNoHomeLaunch);
}

TEST_F(SceneManagerTest, RemovingARunningSceneStopsItFirst) {
  SceneManager& scenes = open();
  ASSERT_EQ(scenes.addScene(0, "soon", tunnelAction(300), ""), idReply(1));
  ASSERT_EQ(scenes.addScene(0, "other", "[]", ""), idReply(2));
  ASSERT_EQ(scenes.startScene(1), kOk);
  EXPECT_EQ(scenes.removeScene(1), kOk);
  EXPECT_EQ(scenes.isSceneProcessing(1), kNotFound);
  EXPECT_EQ(scenes.getScenesCount(), countReply(1));
  EXPECT_THAT(storedNames(), ElementsAre("other"));
  // The action's timer died with the run: its command never comes.
  std::this_thread::sleep_for(milliseconds(900));
  EXPECT_EQ(pellwayCount(), 0u);
}

// --- store failures leave registry and file as they were ---

TEST_F(SceneManagerTest, LockedStoreAnswers3501AndChangesNothing) {
  SceneManager& scenes = open();
  ASSERT_EQ(scenes.addScene(0, "a", kLongAction, ""), idReply(1));
  ASSERT_EQ(scenes.startScene(1), kOk);
  const std::string before = scenes.getAllScenes();
  {
    DatabaseLock lock(store->databasePath());
    ASSERT_TRUE(lock.locked());
    EXPECT_EQ(scenes.addScene(0, "b", "[]", ""), kStoreFailed);
    EXPECT_EQ(scenes.updateScene(1, "changed", "[]", kHome), kStoreFailed);
    // The run was stopped before the store was asked.
    EXPECT_EQ(scenes.isSceneProcessing(1), kIdle);
    EXPECT_EQ(scenes.setSceneLaunch(1, kHome), kStoreFailed);
    EXPECT_EQ(scenes.removeSceneLaunch(1), kStoreFailed);
    EXPECT_EQ(scenes.removeScene(1), kStoreFailed);
    EXPECT_EQ(scenes.getAllScenes(), before);
    EXPECT_EQ(scenes.startSceneByDeviceStatus("AA:BB:CC:DD:EE:FF", true), kNoHomeLaunch);
  }
  EXPECT_THAT(storedNames(), ElementsAre("a"));
  EXPECT_EQ(scenes.addScene(0, "b", "[]", ""), idReply(2));
  EXPECT_EQ(scenes.removeScene(1), kOk);
  EXPECT_THAT(storedNames(), ElementsAre("b"));
}

TEST_F(SceneManagerTest, CorruptDatabaseLoadsNothingAndRefusesWrites) {
  const std::string garbage(2048, '\x13');
  const std::string path = store->databasePath();
  store.reset();
  fs::remove(path);
  dir.write("store/SmartTask.db", garbage);
  store = std::make_unique<DataManager>(dir.file("store") + "/", dir.file("factory.conf"));
  SceneManager& scenes = open();
  EXPECT_EQ(scenes.getScenesCount(), countReply(0));
  EXPECT_EQ(scenes.addScene(0, "a", "[]", ""), kStoreFailed);
  EXPECT_EQ(scenes.getScenesCount(), countReply(0));
  EXPECT_EQ(TempDir::read(path), garbage);
}

TEST_F(SceneManagerTest, ResetEmptiesTheStoreButKeepsTheRegistry) {
  SceneManager& scenes = open();
  ASSERT_EQ(scenes.addScene(0, "a", "[]", ""), idReply(1));
  dir.write("store/Zorvik.conf", "V1 = true\n");
  EXPECT_EQ(scenes.resetScenes(), kOk);
  EXPECT_FALSE(fs::exists(store->databasePath()));
  EXPECT_FALSE(fs::exists(store->localConfigPath()));
  EXPECT_EQ(scenes.getScenesCount(), countReply(1));
  // Until the daemon restarts the store stays closed: nothing is acknowledged.
  EXPECT_EQ(scenes.addScene(0, "b", "[]", ""), kStoreFailed);
}

// --- the scene-status record ---

TEST_F(SceneManagerTest, RecordListsEachSceneWithItsAlarmSwitchAndLogsAFailedCommand) {
  {
    SceneManager& empty = open();
    shell.clear();
    LogCapture& capture = captureLog();
    EXPECT_EQ(empty.recordSceneByCrontab(), kOk);  // no scene: no command
    EXPECT_THAT(shell.lines(), IsEmpty());
    EXPECT_THAT(capture.messages(), IsEmpty());
  }
  ASSERT_TRUE(
      store->insertScene(Scene(3, "on", "[]", R"({"timer":{"time":"07:30","repeat":"1"}})")));
  ASSERT_TRUE(store->insertScene(Scene(7, "off", "[]", R"({"timer":{"enabled":false}})")));
  ASSERT_TRUE(store->insertScene(Scene(9, "no timer", "[]", "")));
  const std::string record = "\"zorvik_scene_status=3:1|7:0|9:1\"";
  for (int result : {0, 256}) {
    SCOPED_TRACE(result);
    SceneManager& scenes = open();
    shell.clear();
    shell.setResult("logger", result);
    LogCapture& capture = captureLog();
    EXPECT_EQ(scenes.recordSceneByCrontab(), kOk);
    EXPECT_THAT(shell.lines(), ElementsAre("logger stat_points_none " + record));
    // Reading the alarm switches logs the timers first; the record and its outcome come last.
    std::vector<std::string> logged{"record: " + record};
    if (result != 0) logged.push_back("system call error");
    const std::vector<std::string> messages = capture.messages();
    ASSERT_GE(messages.size(), logged.size());
    EXPECT_EQ(std::vector<std::string>(messages.end() - logged.size(), messages.end()), logged);
    EXPECT_FALSE(capture.contains("system command:"));
    if (result != 0) {
      EXPECT_EQ(capture.lines().back().priority, 3);
    }
  }
}

// --- the clock ---

class SceneManagerNtpTest : public SceneManagerTest {
 protected:
  std::string ntpFile() { return dir.file("ntp.status"); }
};

TEST_F(SceneManagerNtpTest, OnlyTheFirstLineOfTheStatusFileCountsInAnyLetterCase) {
  SceneManager& scenes = open();
  const struct {
    std::optional<std::string> contents;  // nothing: no file at all
    bool ok;
    std::string logged;
  } cases[] = {
      {"ntp ok\nsecond line\n", true, "===========> upper buffer: NTP OK"},
      {"sync: Ok, stratum 2", true, "===========> upper buffer: SYNC: OK, STRATUM 2"},
      {"unsynchronised\nOK\n", false, "===========> upper buffer: UNSYNCHRONISED"},
      {"", false, "===========> upper buffer: "},
      {std::nullopt, false, "Can not find ntp status file: " + ntpFile()},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.logged);
    LogCapture& capture = captureLog();
    if (c.contents) {
      dir.write("ntp.status", *c.contents);
    } else {
      fs::remove(ntpFile());
    }
    EXPECT_EQ(scenes.isNtpOk(), c.ok);
    EXPECT_THAT(capture.messages(), ElementsAre(c.logged));
    EXPECT_EQ(capture.lines()[0].priority, 3);
  }
}

TEST_F(SceneManagerNtpTest, WaitLoopPausesFiveSecondsTwentyTimesThenTwenty) {
  std::vector<milliseconds> pauses;
  SceneManager& scenes = open([&](milliseconds pause) {
    pauses.push_back(pause);
    if (pauses.size() == 23) dir.write("ntp.status", "OK\n");
  });
  LogCapture& capture = captureLog();
  scenes.ntpWaitLoop();
  ASSERT_EQ(pauses.size(), 23u);
  for (size_t i = 0; i < 20; ++i) EXPECT_EQ(pauses[i], milliseconds(5000)) << i;
  for (size_t i = 20; i < 23; ++i) EXPECT_EQ(pauses[i], milliseconds(20000)) << i;
  EXPECT_TRUE(capture.contains("Waiting for ntp status ok, times: 1 duration: 5"));
  EXPECT_TRUE(capture.contains("Waiting for ntp status ok, times: 20 duration: 5"));
  EXPECT_TRUE(capture.contains("Waiting for ntp status ok, times: 21 duration: 20"));
  EXPECT_EQ(capture.count("Waiting for ntp status ok"), 23);
  EXPECT_EQ(capture.messages().back(), "Ntp status ok, now add existing alarm");
  EXPECT_TRUE(scenes.ntpReady());
}

TEST_F(SceneManagerNtpTest, StartWithTrustedClockAddsAlarmsAtOnce) {
  dir.write("ntp.status", "OK\n");
  std::vector<milliseconds> pauses;
  SceneManager& scenes = open([&](milliseconds pause) { pauses.push_back(pause); });
  LogCapture& capture = captureLog();
  scenes.start();
  EXPECT_THAT(pauses, ElementsAre(milliseconds(200)));
  EXPECT_TRUE(scenes.ntpReady());
  EXPECT_THAT(capture.messages(), ElementsAre("===========> upper buffer: OK",
                                              "Ntp status ok, now add existing alarm"));
}

TEST_F(SceneManagerNtpTest, StartWithoutTrustedClockWaitsOnItsOwnThread) {
  // Like the daemon's, this manager and its store are never destroyed: the wait thread is
  // detached and may still be leaving the manager when the test sees the clock trusted.
  static TempDir* const folder = new TempDir();
  static DataManager* const leakedStore =
      new DataManager(folder->file("store") + "/", folder->file("factory.conf"));
  static SceneManager* const waiting =
      new SceneManager(leakedStore, folder->file("ntp.status"),
                       [](milliseconds) { std::this_thread::sleep_for(milliseconds(10)); });
  fs::remove(folder->file("ntp.status"));
  LogCapture& capture = captureLog();
  // start() returns while the clock is still untrusted; the polling goes on behind it.
  waiting->start();
  ASSERT_TRUE(capture.waitFor("Waiting for ntp status ok, times: 2 duration: 5"));
  EXPECT_FALSE(capture.contains("Ntp status ok, now add existing alarm"));
  folder->write("ntp.status", "ntp ok\n");
  ASSERT_TRUE(capture.waitFor("Ntp status ok, now add existing alarm"));
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (!waiting->ntpReady() && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(milliseconds(5));
  }
  EXPECT_TRUE(waiting->ntpReady());
}

TEST_F(SceneManagerNtpTest, AlarmsAreReadOnlyOnceTheClockIsTrusted) {
  ASSERT_TRUE(
      store->insertScene(Scene(1, "stored", "[]", R"({"timer":{"time":"06:00","repeat":"1"}})")));
  SceneManager& scenes = open();
  LogCapture& capture = captureLog();
  ASSERT_EQ(scenes.addScene(0, "early", "[]", R"({"timer":{"time":"07:30","repeat":"1"}})"),
            idReply(2));
  EXPECT_FALSE(capture.contains("Alarm timer time:"));

  scenes.addExistingAlarms();
  EXPECT_TRUE(scenes.ntpReady());
  EXPECT_TRUE(capture.contains("Alarm timer time: 06:00"));
  EXPECT_TRUE(capture.contains("Alarm timer time: 07:30"));

  capture.clear();
  ASSERT_EQ(scenes.addScene(0, "late", "[]", R"({"timer":{"time":"08:15","repeat":"2"}})"),
            idReply(3));
  EXPECT_TRUE(capture.contains("Alarm timer time: 08:15"));
  EXPECT_EQ(scenes.updateScene(3, "late", "[]", R"({"timer":{"time":"09:45"}})"), kOk);
  EXPECT_TRUE(capture.contains("Alarm timer time: 09:45"));
  EXPECT_EQ(scenes.setSceneLaunch(3, R"({"timer":{"time":"10:05"}})"), kOk);
  EXPECT_TRUE(capture.contains("Alarm timer time: 10:05"));
}

TEST_F(SceneManagerNtpTest, UnreadableAlarmTextsNeverStopTheManager) {
  SceneManager& scenes = open();
  scenes.addExistingAlarms();
  for (const char* launch :
       {R"({"timer":{"time":null,"repeat":null,"utc_time":null}})", R"({"timer":"07:xx"})",
        R"({"timer":{"time":"","repeat":"9,-1,,"}})", R"({"timer":null})", R"({"timer":[1,2]})"}) {
    EXPECT_THAT(scenes.addScene(0, "odd", "[]", launch), ::testing::StartsWith(R"({ "code": 0,)"))
        << launch;
  }
  EXPECT_EQ(scenes.recordSceneByCrontab(), kOk);
  EXPECT_EQ(scenes.startSceneByCrontab(1, "07:30"), kOk);
  EXPECT_THAT(scenes.getAllScenes(), ::testing::StartsWith(R"({ "code": 0,)"));
}

// --- many callers at once ---

TEST_F(SceneManagerTest, ConcurrentCallersKeepRegistryAndStoreInStep) {
  SceneManager& scenes = open();
  std::atomic<int> added{0};
  std::vector<std::thread> callers;
  for (int t = 0; t < 3; ++t) {
    callers.emplace_back([&scenes, &added, t] {
      for (int i = 0; i < 15; ++i) {
        const std::string reply =
            scenes.addScene(0, "t" + std::to_string(t), tunnelAction(20), kHome);
        if (reply.find("\"id\"") != std::string::npos) ++added;
        scenes.startScene(i + 1);
        scenes.startSceneByDeviceStatus("AA:BB:CC:DD:EE:FF", true);
        scenes.getAllScenes();
        scenes.stopScene(i);
        if (i % 5 == 4) scenes.removeScene(i);
      }
    });
  }
  for (std::thread& caller : callers) caller.join();
  for (int id = 1; id <= 45; ++id) scenes.stopScene(id);
  const size_t stored = store->getScenes().size();
  EXPECT_EQ(scenes.getScenesCount(), countReply(stored));
  EXPECT_EQ(added.load(), 45);
}

}  // namespace
}  // namespace zorvik
