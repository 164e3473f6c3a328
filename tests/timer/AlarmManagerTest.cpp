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
using Values = std::vector<int64_t>;

// 2024-01-01 was a Monday.
pt::ptime monday(int hour, int minute) {
  return pt::ptime(gr::date(2024, 1, 1), pt::hours(hour) + pt::minutes(minute));
}

int64_t epochMs(const pt::ptime& utc) {
  return (utc - pt::ptime(gr::date(1970, 1, 1))).total_milliseconds();
}

std::string weeklyText(const std::string& time) {
  return "{\"time\":\"" + time + "\",\"repeat\":\"1\"}";
}

std::shared_ptr<TestAlarm> weeklyAlarm(const std::string& time,
                                       TestAlarm::Hook hook = TestAlarm::Hook()) {
  return std::make_shared<TestAlarm>(weeklyText(time), std::move(hook));
}

std::shared_ptr<TestAlarm> onceAlarm(const pt::ptime& utc) {
  return std::make_shared<TestAlarm>("{\"utc_time\":" + std::to_string(epochMs(utc)) + "}");
}

TimerEventManager* timers() { return TimerEventManager::getInstance(); }

// The receiver's timers live in the process-wide timer manager, whose thread this test program
// never starts: the tests observe the armed interval in its list and fire the receiver
// themselves. The manager's clock is fixed at `now_` (local time, TZ=UTC). `a_` is 10 minutes
// away and `b_` 20 minutes away.
class AlarmManagerTest : public ::testing::Test {
 protected:
  AlarmManagerTest() : manager_([this] { return now_; }) {}

  void SetUp() override { ASSERT_TRUE(timers()->pendingTimers().empty()); }

  void addBoth() {
    manager_.addAlarm(a_);
    manager_.addAlarm(b_);
  }

  // The interval the receiver is armed with, in milliseconds, or nothing when it is idle.
  std::optional<int64_t> armedInterval() const {
    for (const auto& info : timers()->pendingTimers()) {
      if (info.receiverIdentity != manager_.receiver().get()) continue;
      return info.interval.seconds * 1000 + info.interval.microseconds / 1000;
    }
    return std::nullopt;
  }

  void expectArmedFor(const std::shared_ptr<AlarmObject>& alarm, int64_t interval) const {
    EXPECT_EQ(manager_.nearestAlarm(), alarm);
    EXPECT_EQ(armedInterval(), interval);
    EXPECT_EQ(timers()->pendingTimers().size(), 1u);
  }

  void expectIdle() const {
    EXPECT_TRUE(manager_.entries().empty());
    EXPECT_EQ(manager_.nearestAlarm(), nullptr);
    EXPECT_FALSE(armedInterval());
  }

  // What the timer thread does when the receiver's timer expires: unlink it and call it.
  void fire() {
    const std::shared_ptr<TimerReceiver>& receiver = manager_.receiver();
    timers()->killTimer(receiver->timerId(), receiver.get());
    receiver->timerEvent();
  }

  Values storedValues() const {
    Values values;
    for (const auto& entry : manager_.entries()) values.push_back(entry.milliseconds);
    return values;
  }

  ScopedTimeZone zone_{"UTC"};
  LogCapture logs_;
  pt::ptime now_ = monday(7, 30);
  AlarmManager manager_;
  std::shared_ptr<TestAlarm> a_ = weeklyAlarm("07:40");
  std::shared_ptr<TestAlarm> b_ = weeklyAlarm("07:50");
};

// ---------------------------------------------------------------------------------------------
// Choosing the nearest alarm

TEST_F(AlarmManagerTest, NewManagerIsIdle) {
  expectIdle();
  EXPECT_FALSE(manager_.receiver()->isRunning());
}

TEST_F(AlarmManagerTest, SmallerAlarmTakesOverTheTimerAndEqualOrLargerOnesDoNot) {
  manager_.addAlarm(b_);
  EXPECT_EQ(storedValues(), Values{20 * kMinute});
  expectArmedFor(b_, 20 * kMinute);
  manager_.addAlarm(a_);
  expectArmedFor(a_, 10 * kMinute);

  const int32_t timerId = manager_.receiver()->timerId();
  logs_.clear();
  manager_.addAlarm(weeklyAlarm("07:40"));  // same value: the earlier registration stays nearest
  manager_.addAlarm(weeklyAlarm("07:50"));
  EXPECT_EQ(manager_.receiver()->timerId(), timerId);
  EXPECT_FALSE(logs_.contains("kill timer"));
  EXPECT_FALSE(logs_.contains("start timer"));
  expectArmedFor(a_, 10 * kMinute);
  EXPECT_EQ(storedValues(), (Values{20 * kMinute, 10 * kMinute, 10 * kMinute, 20 * kMinute}));
}

TEST_F(AlarmManagerTest, AlarmWithoutFutureFiringIsNotAdded) {
  auto past = onceAlarm(monday(7, 0));
  manager_.addAlarm(past);
  manager_.addAlarm(
      std::make_shared<TestAlarm>("{\"time\":\"07:40\",\"repeat\":\"1\","
                                  "\"enabled\":false}"));
  manager_.addAlarm(std::make_shared<TestAlarm>(""));
  expectIdle();
  EXPECT_EQ(past->clears(), 0);
  EXPECT_EQ(past->alarms(), 0);
}

TEST_F(AlarmManagerTest, SameAlarmIsAddedAgainOnlyWithADifferentValue) {
  manager_.addAlarm(a_);
  manager_.addAlarm(a_);
  EXPECT_EQ(storedValues(), Values{10 * kMinute});

  now_ = monday(7, 31);  // the clock moved on
  manager_.addAlarm(a_);
  EXPECT_EQ(storedValues(), (Values{10 * kMinute, 9 * kMinute}));
  EXPECT_EQ(armedInterval(), 9 * kMinute);

  manager_.removeAlarm(a_);  // removes the first entry
  EXPECT_EQ(storedValues(), Values{9 * kMinute});
  EXPECT_EQ(armedInterval(), 9 * kMinute);
}

// ---------------------------------------------------------------------------------------------
// Firing

TEST_F(AlarmManagerTest, FiringKeepsTheStoredValuesOfTheOtherAlarms) {
  addBoth();
  now_ = monday(7, 40);
  fire();
  EXPECT_EQ(a_->alarms(), 1);
  EXPECT_EQ(b_->alarms(), 0);
  // a waits a week; b keeps the 20 minutes stored when it was added, though 10 remain.
  EXPECT_EQ(storedValues(), (Values{kWeek, 20 * kMinute}));
  expectArmedFor(b_, 20 * kMinute);

  now_ = monday(7, 50);
  fire();
  EXPECT_EQ(b_->alarms(), 1);
  EXPECT_EQ(storedValues(), (Values{kWeek, kWeek}));
  EXPECT_EQ(manager_.nearestAlarm(), a_);
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
  expectIdle();
  EXPECT_FALSE(manager_.receiver()->isRunning());
}

TEST_F(AlarmManagerTest, ThirtyDaysAreArmedWithTheLow32BitsAndFireAtOnce) {
  now_ = monday(0, 0);
  auto once = onceAlarm(pt::ptime(gr::date(2024, 1, 31)));
  manager_.addAlarm(once);
  EXPECT_EQ(storedValues(), Values{2592000000});
  EXPECT_EQ(armedInterval(), -1702967296);
  EXPECT_TRUE(logs_.contains("start timer, interval=-1702967296"));

  // The interval is in the past: the timer manager's next pass fires it, a month early.
  timers()->activateTimers();
  EXPECT_EQ(once->alarms(), 1);
  expectIdle();
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
  a_ = weeklyAlarm("07:40", [this](TestAlarm&) { manager_.removeAlarm(a_); });
  addBoth();
  fire();
  EXPECT_EQ(a_->alarms(), 1);
  ASSERT_EQ(manager_.entries().size(), 1u);
  EXPECT_EQ(manager_.entries()[0].alarm, b_);
  expectArmedFor(b_, 20 * kMinute);
}

TEST_F(AlarmManagerTest, AlarmWhoseTextBecameUnreadableIsDroppedAtItsFiring) {
  addBoth();
  a_->setAlarmText(weeklyText("07:xx"));
  fire();
  EXPECT_EQ(a_->alarms(), 1);
  EXPECT_TRUE(logs_.contains("alarm failed: "));
  EXPECT_EQ(storedValues(), Values{20 * kMinute});
  expectArmedFor(b_, 20 * kMinute);
}

// ---------------------------------------------------------------------------------------------
// Removing and updating

TEST_F(AlarmManagerTest, RemovingTheNearestAlarmRearmsForTheNextSmallest) {
  addBoth();
  manager_.removeAlarm(a_);
  expectArmedFor(b_, 20 * kMinute);
  manager_.removeAlarm(b_);
  expectIdle();
}

TEST_F(AlarmManagerTest, RemovingAnotherAlarmLeavesTheTimerAlone) {
  addBoth();
  const int32_t timerId = manager_.receiver()->timerId();
  logs_.clear();
  manager_.removeAlarm(b_);
  manager_.removeAlarm(weeklyAlarm("07:40"));  // never registered: nothing happens
  EXPECT_EQ(manager_.receiver()->timerId(), timerId);
  EXPECT_EQ(armedInterval(), 10 * kMinute);
  EXPECT_EQ(storedValues(), Values{10 * kMinute});
  EXPECT_TRUE(logs_.messages().empty());
}

TEST_F(AlarmManagerTest, UpdatingRearmsForWhicheverAlarmIsNearestAfterwards) {
  struct Case {
    const char* name;
    bool updateA;  // otherwise b is updated
    std::string text;
    Values stored;
    bool aNearest;
    int64_t interval;
  };
  const Case cases[] = {
      {"nearest to later", true, weeklyText("08:00"), {20 * kMinute, 30 * kMinute}, false, 20},
      {"nearest to earlier", true, weeklyText("07:35"), {20 * kMinute, 5 * kMinute}, true, 5},
      {"other to earlier", false, weeklyText("07:35"), {10 * kMinute, 5 * kMinute}, false, 5},
      {"nearest to no future", true, "", {20 * kMinute}, false, 20},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    a_ = weeklyAlarm("07:40");
    b_ = weeklyAlarm("07:50");
    addBoth();
    const auto& updated = c.updateA ? a_ : b_;
    updated->setAlarmText(c.text);
    manager_.updateAlarm(updated);
    EXPECT_EQ(storedValues(), c.stored);
    expectArmedFor(c.aNearest ? a_ : b_, c.interval * kMinute);
    manager_.removeAlarm(a_);
    manager_.removeAlarm(b_);
  }
}

TEST_F(AlarmManagerTest, UpdatingAnotherAlarmToNoFutureRegistersItAndFiresItNext) {
  auto once = onceAlarm(monday(7, 50));
  manager_.addAlarm(a_);
  manager_.addAlarm(once);
  now_ = monday(7, 55);  // the once alarm's instant has passed
  manager_.updateAlarm(once);
  EXPECT_EQ(storedValues(), (Values{10 * kMinute, -1}));
  expectArmedFor(once, -1);

  timers()->activateTimers();  // due at once
  EXPECT_EQ(once->alarms(), 1);
  EXPECT_EQ(once->clears(), 1);
  EXPECT_EQ(storedValues(), Values{10 * kMinute});
  EXPECT_EQ(armedInterval(), 10 * kMinute);
}

TEST_F(AlarmManagerTest, UpdatingAnUnregisteredAlarmRegistersIt) {
  manager_.updateAlarm(a_);
  expectArmedFor(a_, 10 * kMinute);
}

TEST_F(AlarmManagerTest, FailedUpdateOfTheNearestLeavesATimerThatFindsNoNearest) {
  manager_.addAlarm(a_);
  a_->setAlarmText(weeklyText("07:xx"));
  EXPECT_THROW(manager_.updateAlarm(a_), std::exception);
  EXPECT_TRUE(manager_.entries().empty());
  EXPECT_EQ(armedInterval(), 10 * kMinute);  // still pending

  fire();
  EXPECT_TRUE(logs_.contains("Error: nearest alarm is null ???"));
  EXPECT_EQ(a_->alarms(), 0);
  // The receiver is free again for the next registration.
  manager_.addAlarm(b_);
  EXPECT_EQ(armedInterval(), 20 * kMinute);
}

// ---------------------------------------------------------------------------------------------
// Bulk registration, lifetime and threads

TEST_F(AlarmManagerTest, SetAlarmsRegistersUsableAlarmsAndClearsSpentOnes) {
  auto disabled = std::make_shared<TestAlarm>(
      "{\"time\":\"07:35\",\"repeat\":\"1\","
      "\"enabled\":false}");
  auto invalid = std::make_shared<TestAlarm>("{\"time\":\"07:35\"}");
  auto spent = onceAlarm(monday(7, 0));
  manager_.setAlarms({b_, disabled, invalid, spent, a_, b_});
  // Duplicates are not looked for.
  EXPECT_EQ(storedValues(), (Values{20 * kMinute, 10 * kMinute, 20 * kMinute}));
  EXPECT_EQ(spent->clears(), 1);
  EXPECT_EQ(spent->alarmText(), "");
  EXPECT_EQ(disabled->clears(), 0);
  EXPECT_EQ(invalid->clears(), 0);
  expectArmedFor(a_, 10 * kMinute);
}

TEST_F(AlarmManagerTest, DestroyedManagerCancelsItsTimer) {
  {
    AlarmManager local([this] { return now_; });
    local.addAlarm(a_);
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
  expectIdle();
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
