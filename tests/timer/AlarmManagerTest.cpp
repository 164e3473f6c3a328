#include <gtest/gtest.h>
#include <syslog.h>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <optional>
#include <thread>

#include "support/LogCapture.h"
#include "timer/AlarmManager.h"
#include "timer/ScopedTimeZone.h"
#include "timer/TestAlarm.h"
#include "timer/TimerEventManager.h"

namespace zorvik {
namespace {

namespace pt = boost::posix_time;
namespace gr = boost::gregorian;

constexpr int64_t kMinute = 60 * 1000;
constexpr int64_t kDay = 24 * 60 * kMinute;
constexpr int64_t kWeek = 7 * kDay;

// 2024-01-01 was a Monday.
pt::ptime monday(int hour, int minute) {
  return pt::ptime(gr::date(2024, 1, 1), pt::hours(hour) + pt::minutes(minute));
}

int64_t epochMs(const pt::ptime& utc) {
  return (utc - pt::ptime(gr::date(1970, 1, 1))).total_milliseconds();
}

std::shared_ptr<TestAlarm> weeklyAlarm(const std::string& time,
                                       TestAlarm::Hook hook = TestAlarm::Hook()) {
  return std::make_shared<TestAlarm>("{\"time\":\"" + time + "\",\"repeat\":\"1\"}",
                                     std::move(hook));
}

std::shared_ptr<TestAlarm> onceAlarm(const pt::ptime& utc) {
  return std::make_shared<TestAlarm>("{\"utc_time\":" + std::to_string(epochMs(utc)) + "}");
}

TimerEventManager* timers() { return TimerEventManager::getInstance(); }

// The receiver's timers live in the process-wide timer manager, whose thread this test program
// never starts: the tests observe the armed interval in its list and fire the receiver
// themselves. The manager's clock is fixed at `now_` (local time, TZ=UTC).
class AlarmManagerTest : public ::testing::Test {
 protected:
  AlarmManagerTest() : manager_([this] { return now_; }) {}

  void SetUp() override { ASSERT_TRUE(timers()->pendingTimers().empty()); }

  // The interval the receiver is armed with, in milliseconds, or nothing when it is idle.
  std::optional<int64_t> armedInterval() const {
    for (const auto& info : timers()->pendingTimers()) {
      if (info.receiverIdentity != manager_.receiver().get()) continue;
      return info.interval.seconds * 1000 + info.interval.microseconds / 1000;
    }
    return std::nullopt;
  }

  // What the timer thread does when the receiver's timer expires: unlink it and call it.
  void fire() {
    const std::shared_ptr<TimerReceiver>& receiver = manager_.receiver();
    timers()->killTimer(receiver->timerId(), receiver.get());
    receiver->timerEvent();
  }

  std::vector<int64_t> storedValues() const {
    std::vector<int64_t> values;
    for (const auto& entry : manager_.entries()) values.push_back(entry.milliseconds);
    return values;
  }

  ScopedTimeZone zone_{"UTC"};
  LogCapture logs_;
  pt::ptime now_ = monday(7, 30);
  AlarmManager manager_;
};

// ---------------------------------------------------------------------------------------------
// Choosing the nearest alarm

TEST_F(AlarmManagerTest, NewManagerIsIdle) {
  EXPECT_TRUE(manager_.entries().empty());
  EXPECT_EQ(manager_.nearestAlarm(), nullptr);
  EXPECT_FALSE(manager_.receiver()->isRunning());
  EXPECT_FALSE(armedInterval());
}

TEST_F(AlarmManagerTest, FirstAlarmArmsTheReceiver) {
  auto a = weeklyAlarm("07:40");
  manager_.addAlarm(a);
  EXPECT_EQ(storedValues(), std::vector<int64_t>{10 * kMinute});
  EXPECT_EQ(manager_.nearestAlarm(), a);
  EXPECT_EQ(armedInterval(), 10 * kMinute);
}

TEST_F(AlarmManagerTest, SmallerAlarmTakesOverTheTimerAndEqualOnesDoNot) {
  auto a = weeklyAlarm("07:40");
  auto b = weeklyAlarm("07:50");
  auto c = weeklyAlarm("07:40");
  manager_.addAlarm(b);
  EXPECT_EQ(armedInterval(), 20 * kMinute);
  manager_.addAlarm(a);
  EXPECT_EQ(manager_.nearestAlarm(), a);
  EXPECT_EQ(armedInterval(), 10 * kMinute);
  EXPECT_EQ(timers()->pendingTimers().size(), 1u);

  const int32_t timerId = manager_.receiver()->timerId();
  manager_.addAlarm(c);  // same value: the earlier registration stays nearest
  EXPECT_EQ(manager_.nearestAlarm(), a);
  EXPECT_EQ(manager_.receiver()->timerId(), timerId);
  EXPECT_EQ(storedValues(), (std::vector<int64_t>{20 * kMinute, 10 * kMinute, 10 * kMinute}));
}

TEST_F(AlarmManagerTest, LargerAlarmLeavesTheTimerAlone) {
  auto a = weeklyAlarm("07:40");
  manager_.addAlarm(a);
  const int32_t timerId = manager_.receiver()->timerId();
  logs_.clear();
  manager_.addAlarm(weeklyAlarm("07:50"));
  EXPECT_EQ(manager_.receiver()->timerId(), timerId);
  EXPECT_EQ(manager_.nearestAlarm(), a);
  EXPECT_FALSE(logs_.contains("kill timer"));
  EXPECT_FALSE(logs_.contains("start timer"));
}

TEST_F(AlarmManagerTest, AlarmWithoutFutureFiringIsNotAdded) {
  auto past = onceAlarm(monday(7, 0));
  auto disabled = std::make_shared<TestAlarm>(
      "{\"time\":\"07:40\",\"repeat\":\"1\","
      "\"enabled\":false}");
  auto empty = std::make_shared<TestAlarm>("");
  manager_.addAlarm(past);
  manager_.addAlarm(disabled);
  manager_.addAlarm(empty);
  EXPECT_TRUE(manager_.entries().empty());
  EXPECT_FALSE(armedInterval());
  EXPECT_EQ(past->clears(), 0);
  EXPECT_EQ(past->alarms(), 0);
}

TEST_F(AlarmManagerTest, SameAlarmIsAddedAgainOnlyWithADifferentValue) {
  auto a = weeklyAlarm("07:40");
  manager_.addAlarm(a);
  manager_.addAlarm(a);
  EXPECT_EQ(storedValues(), std::vector<int64_t>{10 * kMinute});

  now_ = monday(7, 31);  // the clock moved on
  manager_.addAlarm(a);
  EXPECT_EQ(storedValues(), (std::vector<int64_t>{10 * kMinute, 9 * kMinute}));
  EXPECT_EQ(armedInterval(), 9 * kMinute);
}

// ---------------------------------------------------------------------------------------------
// Firing

TEST_F(AlarmManagerTest, FiringKeepsTheStoredValuesOfTheOtherAlarms) {
  auto a = weeklyAlarm("07:40");
  auto b = weeklyAlarm("07:50");
  manager_.addAlarm(a);
  manager_.addAlarm(b);
  now_ = monday(7, 40);
  fire();
  EXPECT_EQ(a->alarms(), 1);
  EXPECT_EQ(b->alarms(), 0);
  // a waits a week; b keeps the 20 minutes stored when it was added, though 10 remain.
  EXPECT_EQ(storedValues(), (std::vector<int64_t>{kWeek, 20 * kMinute}));
  EXPECT_EQ(manager_.nearestAlarm(), b);
  EXPECT_EQ(armedInterval(), 20 * kMinute);

  now_ = monday(7, 50);
  fire();
  EXPECT_EQ(b->alarms(), 1);
  EXPECT_EQ(storedValues(), (std::vector<int64_t>{kWeek, kWeek}));
  EXPECT_EQ(manager_.nearestAlarm(), a);
}

TEST_F(AlarmManagerTest, OnceAlarmIsClearedAndDroppedAndTheReceiverGoesIdle) {
  auto once = onceAlarm(monday(8, 0));
  manager_.addAlarm(once);
  EXPECT_EQ(armedInterval(), 30 * kMinute);
  now_ = monday(8, 0);
  fire();
  EXPECT_EQ(once->alarms(), 1);
  EXPECT_EQ(once->clears(), 1);
  EXPECT_EQ(once->alarmText(), "");
  EXPECT_TRUE(manager_.entries().empty());
  EXPECT_EQ(manager_.nearestAlarm(), nullptr);
  EXPECT_FALSE(manager_.receiver()->isRunning());
  EXPECT_FALSE(armedInterval());
}

TEST_F(AlarmManagerTest, ThirtyDaysAreArmedWithTheLow32BitsAndFireAtOnce) {
  now_ = monday(0, 0);
  auto once = onceAlarm(pt::ptime(gr::date(2024, 1, 31)));
  manager_.addAlarm(once);
  EXPECT_EQ(storedValues(), std::vector<int64_t>{2592000000});
  EXPECT_EQ(armedInterval(), -1702967296);
  EXPECT_TRUE(logs_.contains("start timer, interval=-1702967296"));

  // The interval is in the past: the timer manager's next pass fires it, a month early.
  timers()->activateTimers();
  EXPECT_EQ(once->alarms(), 1);
  EXPECT_TRUE(manager_.entries().empty());
  EXPECT_FALSE(armedInterval());
}

TEST_F(AlarmManagerTest, FiringWithoutNearestAlarmLogsAnError) {
  manager_.receiver()->timerEvent();
  bool found = false;
  for (const CapturedLine& line : logs_.lines()) {
    if (LogCapture::messageOf(line.text) != "Error: nearest alarm is null ???") continue;
    found = true;
    EXPECT_EQ(line.priority, LOG_ERR);
    EXPECT_EQ(line.text.rfind("[ZORVIK ERROR AlarmManager.cpp:", 0), 0u) << line.text;
  }
  EXPECT_TRUE(found);
  EXPECT_FALSE(armedInterval());
}

TEST_F(AlarmManagerTest, AlarmThatUnregistersItselfWhileFiringLeavesAConsistentList) {
  std::weak_ptr<AlarmObject> self;
  auto a = weeklyAlarm("07:40", [this, &self](TestAlarm&) { manager_.removeAlarm(self.lock()); });
  self = a;
  auto b = weeklyAlarm("07:50");
  manager_.addAlarm(a);
  manager_.addAlarm(b);
  fire();
  EXPECT_EQ(a->alarms(), 1);
  ASSERT_EQ(manager_.entries().size(), 1u);
  EXPECT_EQ(manager_.entries()[0].alarm, b);
  EXPECT_EQ(manager_.nearestAlarm(), b);
  EXPECT_EQ(armedInterval(), 20 * kMinute);
}

TEST_F(AlarmManagerTest, AlarmWhoseTextBecameUnreadableIsDroppedAtItsFiring) {
  auto a = weeklyAlarm("07:40");
  auto b = weeklyAlarm("07:50");
  manager_.addAlarm(a);
  manager_.addAlarm(b);
  a->setAlarmText("{\"time\":\"07:xx\",\"repeat\":\"1\"}");
  fire();
  EXPECT_EQ(a->alarms(), 1);
  EXPECT_TRUE(logs_.contains("alarm failed: "));
  ASSERT_EQ(manager_.entries().size(), 1u);
  EXPECT_EQ(manager_.nearestAlarm(), b);
  EXPECT_EQ(armedInterval(), 20 * kMinute);
}

// ---------------------------------------------------------------------------------------------
// Removing and updating

TEST_F(AlarmManagerTest, RemovingTheNearestAlarmRearmsForTheNextSmallest) {
  auto a = weeklyAlarm("07:40");
  auto b = weeklyAlarm("07:50");
  manager_.addAlarm(a);
  manager_.addAlarm(b);
  manager_.removeAlarm(a);
  EXPECT_EQ(manager_.nearestAlarm(), b);
  EXPECT_EQ(armedInterval(), 20 * kMinute);
  manager_.removeAlarm(b);
  EXPECT_TRUE(manager_.entries().empty());
  EXPECT_FALSE(armedInterval());
}

TEST_F(AlarmManagerTest, RemovingAnotherAlarmLeavesTheTimerAlone) {
  auto a = weeklyAlarm("07:40");
  auto b = weeklyAlarm("07:50");
  manager_.addAlarm(a);
  manager_.addAlarm(b);
  const int32_t timerId = manager_.receiver()->timerId();
  logs_.clear();
  manager_.removeAlarm(b);
  manager_.removeAlarm(weeklyAlarm("07:40"));  // never registered: nothing happens
  EXPECT_EQ(manager_.receiver()->timerId(), timerId);
  EXPECT_EQ(armedInterval(), 10 * kMinute);
  EXPECT_EQ(storedValues(), std::vector<int64_t>{10 * kMinute});
  EXPECT_TRUE(logs_.messages().empty());
}

TEST_F(AlarmManagerTest, RemovingOneOfTwoEntriesOfAnAlarmRemovesTheFirst) {
  auto a = weeklyAlarm("07:40");
  manager_.addAlarm(a);
  now_ = monday(7, 31);
  manager_.addAlarm(a);  // second entry, 9 minutes, now the nearest
  manager_.removeAlarm(a);
  EXPECT_EQ(storedValues(), std::vector<int64_t>{9 * kMinute});
  EXPECT_EQ(armedInterval(), 9 * kMinute);
}

TEST_F(AlarmManagerTest, UpdatingTheNearestAlarmToLaterRearmsForTheSmallest) {
  auto a = weeklyAlarm("07:40");
  auto b = weeklyAlarm("07:50");
  manager_.addAlarm(a);
  manager_.addAlarm(b);
  a->setAlarmText("{\"time\":\"08:00\",\"repeat\":\"1\"}");
  manager_.updateAlarm(a);
  EXPECT_EQ(storedValues(), (std::vector<int64_t>{20 * kMinute, 30 * kMinute}));
  EXPECT_EQ(manager_.nearestAlarm(), b);
  EXPECT_EQ(armedInterval(), 20 * kMinute);
}

TEST_F(AlarmManagerTest, UpdatingTheNearestAlarmToEarlierRearmsForIt) {
  auto a = weeklyAlarm("07:40");
  auto b = weeklyAlarm("07:50");
  manager_.addAlarm(a);
  manager_.addAlarm(b);
  a->setAlarmText("{\"time\":\"07:35\",\"repeat\":\"1\"}");
  manager_.updateAlarm(a);
  EXPECT_EQ(manager_.nearestAlarm(), a);
  EXPECT_EQ(armedInterval(), 5 * kMinute);
}

TEST_F(AlarmManagerTest, UpdatingAnotherAlarmToEarlierMakesItTheNearest) {
  auto a = weeklyAlarm("07:40");
  auto b = weeklyAlarm("07:50");
  manager_.addAlarm(a);
  manager_.addAlarm(b);
  b->setAlarmText("{\"time\":\"07:35\",\"repeat\":\"1\"}");
  manager_.updateAlarm(b);
  EXPECT_EQ(manager_.nearestAlarm(), b);
  EXPECT_EQ(armedInterval(), 5 * kMinute);
  EXPECT_EQ(timers()->pendingTimers().size(), 1u);
}

TEST_F(AlarmManagerTest, UpdatingTheNearestAlarmToNoFutureDropsIt) {
  auto a = weeklyAlarm("07:40");
  auto b = weeklyAlarm("07:50");
  manager_.addAlarm(a);
  manager_.addAlarm(b);
  a->setAlarmText("");
  manager_.updateAlarm(a);
  EXPECT_EQ(storedValues(), std::vector<int64_t>{20 * kMinute});
  EXPECT_EQ(manager_.nearestAlarm(), b);
  EXPECT_EQ(armedInterval(), 20 * kMinute);
}

TEST_F(AlarmManagerTest, UpdatingAnotherAlarmToNoFutureRegistersItAndFiresItNext) {
  auto a = weeklyAlarm("07:40");
  auto b = onceAlarm(monday(7, 50));
  manager_.addAlarm(a);
  manager_.addAlarm(b);
  now_ = monday(7, 55);  // b's instant has passed
  manager_.updateAlarm(b);
  EXPECT_EQ(storedValues(), (std::vector<int64_t>{10 * kMinute, -1}));
  EXPECT_EQ(manager_.nearestAlarm(), b);
  EXPECT_EQ(armedInterval(), -1);

  timers()->activateTimers();  // due at once
  EXPECT_EQ(b->alarms(), 1);
  EXPECT_EQ(b->clears(), 1);
  EXPECT_EQ(storedValues(), std::vector<int64_t>{10 * kMinute});
  EXPECT_EQ(armedInterval(), 10 * kMinute);
}

TEST_F(AlarmManagerTest, UpdatingAnUnregisteredAlarmRegistersIt) {
  auto a = weeklyAlarm("07:40");
  manager_.updateAlarm(a);
  EXPECT_EQ(manager_.nearestAlarm(), a);
  EXPECT_EQ(armedInterval(), 10 * kMinute);
}

TEST_F(AlarmManagerTest, FailedUpdateOfTheNearestLeavesATimerThatFindsNoNearest) {
  auto a = weeklyAlarm("07:40");
  manager_.addAlarm(a);
  a->setAlarmText("{\"time\":\"07:xx\",\"repeat\":\"1\"}");
  EXPECT_THROW(manager_.updateAlarm(a), std::exception);
  EXPECT_TRUE(manager_.entries().empty());
  EXPECT_EQ(armedInterval(), 10 * kMinute);  // still pending

  fire();
  EXPECT_TRUE(logs_.contains("Error: nearest alarm is null ???"));
  EXPECT_EQ(a->alarms(), 0);
  // The receiver is free again for the next registration.
  auto b = weeklyAlarm("07:50");
  manager_.addAlarm(b);
  EXPECT_EQ(armedInterval(), 20 * kMinute);
}

// ---------------------------------------------------------------------------------------------
// Bulk registration, lifetime and threads

TEST_F(AlarmManagerTest, SetAlarmsRegistersUsableAlarmsAndClearsSpentOnes) {
  auto b = weeklyAlarm("07:50");
  auto disabled = std::make_shared<TestAlarm>(
      "{\"time\":\"07:35\",\"repeat\":\"1\","
      "\"enabled\":false}");
  auto invalid = std::make_shared<TestAlarm>("{\"time\":\"07:35\"}");
  auto spent = onceAlarm(monday(7, 0));
  auto a = weeklyAlarm("07:40");
  manager_.setAlarms({b, disabled, invalid, spent, a, b});
  // Duplicates are not looked for.
  EXPECT_EQ(storedValues(), (std::vector<int64_t>{20 * kMinute, 10 * kMinute, 20 * kMinute}));
  EXPECT_EQ(spent->clears(), 1);
  EXPECT_EQ(spent->alarmText(), "");
  EXPECT_EQ(disabled->clears(), 0);
  EXPECT_EQ(invalid->clears(), 0);
  EXPECT_EQ(manager_.nearestAlarm(), a);
  EXPECT_EQ(armedInterval(), 10 * kMinute);
}

TEST_F(AlarmManagerTest, DestroyedManagerCancelsItsTimer) {
  {
    AlarmManager local([this] { return now_; });
    local.addAlarm(weeklyAlarm("07:40"));
    EXPECT_EQ(timers()->pendingTimers().size(), 1u);
  }
  EXPECT_TRUE(timers()->pendingTimers().empty());
}

TEST_F(AlarmManagerTest, OperationsFromSeveralThreadsKeepTheListConsistent) {
  auto worker = [this](const std::string& time) {
    for (int round = 0; round < 50; ++round) {
      auto alarm = weeklyAlarm(time);
      manager_.addAlarm(alarm);
      manager_.updateAlarm(alarm);
      manager_.entries();
      manager_.removeAlarm(alarm);
    }
  };
  std::thread first(worker, "07:40");
  std::thread second(worker, "07:50");
  first.join();
  second.join();
  EXPECT_TRUE(manager_.entries().empty());
  EXPECT_EQ(manager_.nearestAlarm(), nullptr);
  EXPECT_FALSE(armedInterval());
}

TEST(AlarmManagerInstanceTest, ProcessWideInstanceIsOneIdleObject) {
  AlarmManager* instance = AlarmManager::getInstance();
  ASSERT_NE(instance, nullptr);
  EXPECT_EQ(instance, AlarmManager::getInstance());
  EXPECT_TRUE(instance->entries().empty());
  EXPECT_FALSE(instance->receiver()->isRunning());
}

}  // namespace
}  // namespace zorvik
