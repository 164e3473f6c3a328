#include <gtest/gtest.h>
#include <syslog.h>

#include "support/LogCapture.h"
#include "timer/TimerEventManager.h"
#include "timer/TimerObject.h"
#include "timer/TimerProbe.h"

namespace zorvik {
namespace {

// Timer objects always use the process-wide manager. This test program never starts its
// thread: the tests drive its passes themselves and leave its list empty.
class TimerObjectTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(manager()->pendingTimers().empty()); }
  void TearDown() override {
    for (const auto& info : manager()->pendingTimers()) manager()->killTimer(info.id);
  }

  static TimerEventManager* manager() { return TimerEventManager::getInstance(); }

  std::shared_ptr<TimerProbe> probe(const std::string& name,
                                    TimerProbe::Hook hook = TimerProbe::Hook()) {
    return std::make_shared<TimerProbe>(name, events_, std::move(hook));
  }

  // The priority of the one line whose message is `message`, or -1.
  int priorityOf(const std::string& message) const {
    for (const CapturedLine& line : logs_.lines()) {
      if (LogCapture::messageOf(line.text) == message) return line.priority;
    }
    return -1;
  }

  LogCapture logs_;
  EventLog events_;
};

TEST_F(TimerObjectTest, StartTimerArmsOneTimerAndLogsTheInterval) {
  auto a = probe("a");
  EXPECT_FALSE(a->isRunning());
  EXPECT_EQ(a->timerId(), TimerObject::kNoTimer);
  a->startTimer(1000);
  EXPECT_TRUE(a->isRunning());
  const auto timers = manager()->pendingTimers();
  ASSERT_EQ(timers.size(), 1u);
  EXPECT_EQ(timers[0].id, a->timerId());
  EXPECT_EQ(timers[0].receiverIdentity, a.get());
  EXPECT_EQ(timers[0].interval.seconds, 1);
  EXPECT_EQ(timers[0].interval.microseconds, 0);
  EXPECT_EQ(logs_.messages(), std::vector<std::string>{"start timer, interval=1000"});
  EXPECT_EQ(logs_.lines()[0].text.rfind("[ZORVIK INFO TimerObject.cpp:", 0), 0u);
}

TEST_F(TimerObjectTest, SecondStartIsRefusedAndKeepsTheFirstTimer) {
  auto a = probe("a");
  a->startTimer(1000);
  const int32_t first = a->timerId();
  a->startTimer(-1);
  EXPECT_EQ(a->timerId(), first);
  ASSERT_EQ(manager()->pendingTimers().size(), 1u);
  EXPECT_EQ(manager()->pendingTimers()[0].interval.seconds, 1);
  EXPECT_EQ(logs_.messages(),
            (std::vector<std::string>{"start timer, interval=1000", "start timer, interval=-1",
                                      "object has existing timer"}));
  EXPECT_EQ(priorityOf("object has existing timer"), LOG_ERR);
}

TEST_F(TimerObjectTest, KillTimerCancelsThePendingTimer) {
  auto a = probe("a");
  a->startTimer(1000);
  const int32_t id = a->timerId();
  logs_.clear();
  a->killTimer();
  EXPECT_FALSE(a->isRunning());
  EXPECT_TRUE(manager()->pendingTimers().empty());
  EXPECT_EQ(logs_.messages(), std::vector<std::string>{"kill timer, id= " + std::to_string(id)});
}

TEST_F(TimerObjectTest, KillTimerOfAnIdleObjectIsRefused) {
  auto a = probe("a");
  a->killTimer();
  EXPECT_EQ(logs_.messages(),
            (std::vector<std::string>{"kill timer, id= -1", "object has not existing timer"}));
  EXPECT_EQ(priorityOf("kill timer, id= -1"), LOG_INFO);
  EXPECT_EQ(priorityOf("object has not existing timer"), LOG_ERR);
}

TEST_F(TimerObjectTest, FiringForgetsTheIdAndTheObjectCanBeArmedAgain) {
  auto a = probe("a");
  a->startTimer(-1);
  manager()->activateTimers();
  EXPECT_EQ(events_.names(), std::vector<std::string>{"a"});
  EXPECT_FALSE(a->isRunning());
  a->startTimer(-1);
  EXPECT_TRUE(a->isRunning());
  manager()->activateTimers();
  EXPECT_EQ(events_.names(), (std::vector<std::string>{"a", "a"}));
}

TEST_F(TimerObjectTest, ReceiverRearmsItselfFromInsideTimerEvent) {
  int rearms = 2;
  auto a = probe("a", [&rearms](TimerProbe& self) {
    if (rearms-- > 0) self.startTimer(-1);
  });
  a->startTimer(-1);
  for (int pass = 0; pass < 3; ++pass) manager()->activateTimers();
  EXPECT_EQ(events_.names(), (std::vector<std::string>{"a", "a", "a"}));
  EXPECT_FALSE(a->isRunning());
  EXPECT_EQ(logs_.count("object has existing timer"), 0);
}

TEST_F(TimerObjectTest, KillTimerWithAStaleIdLeavesAnotherObjectsTimer) {
  auto a = probe("a");
  auto b = probe("b");
  a->startTimer(-1);
  const int32_t stale = a->timerId();
  // The timer leaves the list; a late handler would still see the old id.
  manager()->killTimer(stale);
  b->startTimer(1000);
  ASSERT_EQ(b->timerId(), stale);
  a->killTimer();
  EXPECT_TRUE(b->isRunning());
  ASSERT_EQ(manager()->pendingTimers().size(), 1u);
  EXPECT_EQ(manager()->pendingTimers()[0].receiverIdentity, b.get());
}

TEST_F(TimerObjectTest, KillThatComesAfterExpiryMarksTheComingEventAsCancelled) {
  auto a = probe("a");
  a->startTimer(1000);
  a->killTimer();
  EXPECT_FALSE(a->takeCancelledFiring());  // cancelled in time: no event will come
  a->startTimer(-1);
  // The timer leaves the list as the timer thread takes it to deliver its event.
  manager()->killTimer(a->timerId());
  a->killTimer();
  EXPECT_FALSE(a->isRunning());
  EXPECT_TRUE(a->takeCancelledFiring());
  EXPECT_FALSE(a->takeCancelledFiring());
}

TEST_F(TimerObjectTest, ObjectDroppedByItsOwnerNeverReceivesItsEvent) {
  auto a = probe("a");
  a->startTimer(-1);
  a.reset();
  manager()->activateTimers();
  EXPECT_TRUE(events_.names().empty());
  EXPECT_TRUE(manager()->pendingTimers().empty());
}

#ifndef NDEBUG
TEST(TimerObjectDeathTest, ObjectWithoutASharedOwnerCannotArmATimer) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // sanitizer builds run a thread of their own
  EventLog events;
  TimerProbe unowned("unowned", events);
  EXPECT_DEATH(unowned.startTimer(10), "shared_ptr");
}
#endif

}  // namespace
}  // namespace zorvik
