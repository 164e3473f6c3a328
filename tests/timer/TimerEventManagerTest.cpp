#include <gtest/gtest.h>
#include <syslog.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

#include "support/LogCapture.h"
#include "timer/TimerEventManager.h"
#include "timer/TimerProbe.h"

namespace zorvik {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using TimeValue = TimerEventManager::TimeValue;

constexpr milliseconds kPatience(5000);

void expectTime(const TimeValue& actual, int64_t seconds, int64_t microseconds) {
  EXPECT_EQ(actual.seconds, seconds);
  EXPECT_EQ(actual.microseconds, microseconds);
}

// A settable wall clock for a manager.
class FakeClock {
 public:
  void set(int64_t seconds, int64_t microseconds) {
    seconds_.store(seconds);
    microseconds_.store(microseconds);
  }
  TimerEventManager::Clock function() {
    return [this] { return TimeValue{seconds_.load(), microseconds_.load()}; };
  }

 private:
  std::atomic<int64_t> seconds_{0};
  std::atomic<int64_t> microseconds_{0};
};

// Waits until the thread driving `manager` sits in select(); false after kPatience.
bool waitUntilInSelect(const TimerEventManager& manager) {
  const auto deadline = steady_clock::now() + kPatience;
  while (!manager.inSelect()) {
    if (steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(milliseconds(1));
  }
  return true;
}

// Drives passes of a manager on a thread of its own until stopped, like the daemon's thread.
class PassLoop {
 public:
  explicit PassLoop(TimerEventManager& manager)
      : manager_(manager), thread_([this] {
          while (!stop_.load()) manager_.processNextEvent();
          finished_.store(true);
        }) {}
  ~PassLoop() {
    stop_.store(true);
    // A pass may be blocked in select() without a timeout: keep waking it until it ends.
    while (!finished_.load()) {
      manager_.wakeUp();
      std::this_thread::sleep_for(milliseconds(1));
    }
    thread_.join();
  }

 private:
  TimerEventManager& manager_;
  std::atomic<bool> stop_{false};
  std::atomic<bool> finished_{false};
  std::thread thread_;
};

class TimerEventManagerTest : public ::testing::Test {
 protected:
  TimerEventManagerTest() : manager_(clock_.function()) { clock_.set(100, 0); }

  std::shared_ptr<TimerProbe> probe(const std::string& name,
                                    TimerProbe::Hook hook = TimerProbe::Hook()) {
    return std::make_shared<TimerProbe>(name, events_, std::move(hook));
  }

  std::vector<int32_t> pendingIds() const {
    std::vector<int32_t> ids;
    for (const auto& info : manager_.pendingTimers()) ids.push_back(info.id);
    return ids;
  }

  std::vector<std::string> fired() const { return events_.names(); }

  // Runs one pass on another thread and returns once that pass sits in select().
  std::thread passBlockedInSelect() {
    std::thread pass([this] { manager_.processNextEvent(); });
    EXPECT_TRUE(waitUntilInSelect(manager_));
    return pass;
  }

  LogCapture logs_;
  EventLog events_;
  FakeClock clock_;
  TimerEventManager manager_;
  std::shared_ptr<TimerProbe> a_ = probe("a");
  std::shared_ptr<TimerProbe> b_ = probe("b");
  std::shared_ptr<TimerProbe> c_ = probe("c");
};

// ---------------------------------------------------------------------------------------------
// Timer ids

TEST_F(TimerEventManagerTest, IdsStartAtOneFollowTheLargestAndRestartWhenTheListEmpties) {
  EXPECT_EQ(manager_.addTimer(1000, a_.get()), 1);
  EXPECT_EQ(manager_.addTimer(1000, a_.get()), 2);
  EXPECT_EQ(manager_.addTimer(1000, a_.get()), 3);
  manager_.killTimer(2);
  EXPECT_EQ(manager_.addTimer(1000, a_.get()), 4);  // 1 and 3 pending
  manager_.killTimer(1);
  manager_.killTimer(3);
  manager_.killTimer(4);
  EXPECT_TRUE(manager_.pendingTimers().empty());
  EXPECT_EQ(manager_.addTimer(-1, a_.get()), 1);
  manager_.activateTimers();  // a fired timer frees its id too
  EXPECT_EQ(fired(), std::vector<std::string>{"a"});
  EXPECT_EQ(manager_.addTimer(-1, a_.get()), 1);
}

// ---------------------------------------------------------------------------------------------
// The sorted list and the arithmetic of expiries

TEST_F(TimerEventManagerTest, ListIsSortedByExpiryAndFiresOneTimerPerPass) {
  manager_.addTimer(300, a_.get());
  manager_.addTimer(100, b_.get());
  manager_.addTimer(200, c_.get());
  EXPECT_EQ(pendingIds(), (std::vector<int32_t>{2, 3, 1}));

  clock_.set(101, 0);
  manager_.processNextEvent();
  EXPECT_EQ(fired(), std::vector<std::string>{"b"});
  manager_.processNextEvent();
  manager_.processNextEvent();
  EXPECT_EQ(fired(), (std::vector<std::string>{"b", "c", "a"}));
  EXPECT_TRUE(manager_.pendingTimers().empty());
}

TEST_F(TimerEventManagerTest, EqualExpiriesFireInRegistrationOrderInSuccessivePasses) {
  manager_.addTimer(500, b_.get());
  manager_.addTimer(500, a_.get());
  manager_.addTimer(100, c_.get());
  manager_.addTimer(500, c_.get());
  EXPECT_EQ(pendingIds(), (std::vector<int32_t>{3, 1, 2, 4}));

  clock_.set(100, 600000);
  for (int pass = 0; pass < 4; ++pass) {
    manager_.processNextEvent();
    EXPECT_EQ(fired().size(), static_cast<size_t>(pass + 1));
  }
  EXPECT_EQ(fired(), (std::vector<std::string>{"c", "b", "a", "c"}));
}

TEST_F(TimerEventManagerTest, IntervalIsSplitBySignedDivisionAndExpiryIsNotCarried) {
  clock_.set(100, 600000);
  manager_.addTimer(1500, a_.get());
  manager_.addTimer(-1500, a_.get());
  const auto timers = manager_.pendingTimers();
  ASSERT_EQ(timers.size(), 2u);
  // The past timer sorts first.
  expectTime(timers[0].interval, -1, -500000);
  expectTime(timers[0].expiry, 99, 100000);
  expectTime(timers[1].interval, 1, 500000);
  expectTime(timers[1].expiry, 101, 1100000);
  EXPECT_EQ(timers[1].receiverIdentity, a_.get());
}

TEST_F(TimerEventManagerTest, NegativeIntervalFiresOnTheNextPass) {
  manager_.addTimer(-2000, a_.get());
  manager_.processNextEvent();
  EXPECT_EQ(fired(), std::vector<std::string>{"a"});
  EXPECT_TRUE(logs_.contains("timer has expired, execute it right now"));
}

TEST_F(TimerEventManagerTest, CompareTimeCarriesOnlyAboveOneMillionMicroseconds) {
  // Exactly 1000000 microseconds stays in the microseconds: (1, 1000000) is before (2, 0);
  // one more is carried: (1, 1000001) is (2, 1).
  const struct {
    int64_t s1, us1, s2, us2;
    int expected;
  } cases[] = {{1, 1000000, 2, 0, -1}, {2, 0, 1, 1000000, 1},      {1, 1000001, 2, 0, 1},
               {1, 1000001, 2, 1, 0},  {1, 1998999, 2, 998999, 0}, {5, 10, 5, 10, 0},
               {5, 9, 5, 10, -1},      {-1, 0, 0, 0, -1}};
  for (const auto& c : cases) {
    EXPECT_EQ(TimerEventManager::compareTime(c.s1, c.us1, c.s2, c.us2), c.expected)
        << "(" << c.s1 << ", " << c.us1 << ") vs (" << c.s2 << ", " << c.us2 << ")";
  }
}

TEST_F(TimerEventManagerTest, CurrentTimeBringsMicrosecondsIntoRange) {
  // (0, -5) stays as it is: never below 0 seconds.
  const struct {
    TimeValue clock, expected;
  } cases[] = {{{100, 2500000}, {102, 500000}}, {{100, -1}, {99, 999999}}, {{0, -5}, {0, -5}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.clock.seconds) + ", " + std::to_string(c.clock.microseconds));
    clock_.set(c.clock.seconds, c.clock.microseconds);
    expectTime(manager_.currentTime(), c.expected.seconds, c.expected.microseconds);
  }
}

// ---------------------------------------------------------------------------------------------
// One pass

TEST_F(TimerEventManagerTest, PassWithDueTimerLogsEachStepInOrder) {
  manager_.addTimer(100, a_.get());
  clock_.set(101, 0);
  logs_.clear();
  manager_.processNextEvent();
  EXPECT_EQ(logs_.messages(), (std::vector<std::string>{
                                  "process next event ...",
                                  "current time: sec=101, usec=0",
                                  "timer info: sec=100, usec=100000",
                                  "timer has expired, execute it right now",
                                  "before select, timeval.sec=0, usec=0",
                                  "select timeout",
                                  "activate timers ...",
                                  "send timer event",
                              }));
  for (const CapturedLine& line : logs_.lines()) {
    EXPECT_EQ(line.text.rfind("[ZORVIK INFO TimerEventManager.cpp:", 0), 0u) << line.text;
  }
}

TEST_F(TimerEventManagerTest, TimeoutBorrowsASecondForNegativeMicroseconds) {
  manager_.addTimer(1100, a_.get());  // expiry (101, 100000)
  clock_.set(100, 950000);
  const auto start = steady_clock::now();
  manager_.processNextEvent();
  EXPECT_TRUE(logs_.contains("before select, timeval.sec=0, usec=150000"));
  EXPECT_TRUE(logs_.contains("select timeout"));
  EXPECT_GE(steady_clock::now() - start, milliseconds(100));
  // The fake clock did not move, so the timer is not due yet.
  EXPECT_TRUE(fired().empty());
  EXPECT_EQ(manager_.pendingTimers().size(), 1u);
}

TEST_F(TimerEventManagerTest, NegativeTimeoutFailsSelectAndTheTimerFiresInALaterPass) {
  clock_.set(100, 600000);
  manager_.addTimer(1500, a_.get());  // expiry (101, 1100000), due at (102, 100000)
  clock_.set(102, 50000);
  manager_.processNextEvent();
  EXPECT_TRUE(logs_.contains("before select, timeval.sec=-1, usec=1050000"));
  int failures = 0;
  for (const CapturedLine& line : logs_.lines()) {
    if (LogCapture::messageOf(line.text) != "select can not find valid connect") continue;
    ++failures;
    EXPECT_EQ(line.priority, LOG_ERR);
    EXPECT_EQ(line.text.rfind("[ZORVIK ERROR TimerEventManager.cpp:", 0), 0u) << line.text;
  }
  EXPECT_EQ(failures, 1);
  EXPECT_TRUE(fired().empty());

  clock_.set(102, 100000);
  manager_.processNextEvent();
  EXPECT_EQ(fired(), std::vector<std::string>{"a"});
}

TEST_F(TimerEventManagerTest, ActivateTimersLeavesATimerThatIsNotDue) {
  manager_.addTimer(1000, a_.get());
  manager_.activateTimers();
  EXPECT_TRUE(fired().empty());
  EXPECT_EQ(manager_.pendingTimers().size(), 1u);
  clock_.set(101, 0);
  manager_.activateTimers();
  EXPECT_EQ(fired(), std::vector<std::string>{"a"});
}

// ---------------------------------------------------------------------------------------------
// Wake-ups of a thread blocked in select()

TEST_F(TimerEventManagerTest, AddTimerWakesAThreadBlockedWithoutTimeout) {
  std::thread pass = passBlockedInSelect();
  manager_.addTimer(60000, a_.get());
  pass.join();
  EXPECT_TRUE(logs_.contains("before select, timeval is NULL"));
  EXPECT_TRUE(logs_.contains("select right event coming"));
  EXPECT_TRUE(fired().empty());
}

TEST_F(TimerEventManagerTest, KillTimerWakesAThreadWaitingForThatTimer) {
  const int32_t id = manager_.addTimer(60000, a_.get());
  std::thread pass = passBlockedInSelect();
  manager_.killTimer(id);
  pass.join();
  EXPECT_TRUE(logs_.contains("before select, timeval.sec=60, usec=0"));
  EXPECT_TRUE(logs_.contains("select right event coming"));
  EXPECT_TRUE(manager_.pendingTimers().empty());
}

TEST_F(TimerEventManagerTest, KillOfAnUnknownIdChangesNothingAndDoesNotWake) {
  manager_.addTimer(60000, a_.get());
  std::thread pass = passBlockedInSelect();
  manager_.killTimer(7);
  manager_.killTimer(1, nullptr);
  manager_.killReceiverTimers(nullptr);
  std::this_thread::sleep_for(milliseconds(200));
  EXPECT_TRUE(manager_.inSelect());
  EXPECT_FALSE(logs_.contains("select right event coming"));
  EXPECT_EQ(pendingIds(), std::vector<int32_t>{1});
  manager_.wakeUp();
  pass.join();
}

TEST_F(TimerEventManagerTest, NoWakeUpIsWrittenWhileTheThreadIsOutsideSelect) {
  manager_.addTimer(-1, a_.get());
  manager_.addTimer(-1, a_.get());
  manager_.killTimer(2);
  // A byte in the pipe would make select() report the pipe instead of timing out.
  manager_.processNextEvent();
  EXPECT_FALSE(logs_.contains("select right event coming"));
  EXPECT_TRUE(logs_.contains("select timeout"));
  EXPECT_EQ(fired(), std::vector<std::string>{"a"});
}

// ---------------------------------------------------------------------------------------------
// Receivers

TEST_F(TimerEventManagerTest, ReceiverArmsANewTimerFromInsideTimerEvent) {
  int rearms = 1;
  auto rearming = probe("a", [this, &rearms](TimerProbe& self) {
    if (rearms-- > 0) manager_.addTimer(-1, &self);
  });
  manager_.addTimer(0, rearming.get());
  manager_.processNextEvent();
  EXPECT_EQ(fired(), std::vector<std::string>{"a"});
  ASSERT_EQ(manager_.pendingTimers().size(), 1u);
  manager_.processNextEvent();
  EXPECT_EQ(fired(), (std::vector<std::string>{"a", "a"}));
  EXPECT_TRUE(manager_.pendingTimers().empty());
}

TEST_F(TimerEventManagerTest, TimerEventRunsWithoutTheManagerLock) {
  // The receiver takes a lock that another thread holds while it arms a timer: with the
  // manager's lock held across timerEvent() the two threads would wait for each other forever.
  TimerEventManager manager;  // real clock
  std::mutex sceneLock;
  std::atomic<bool> inHandler{false};
  auto blocking = probe("a", [&](TimerProbe&) {
    inHandler.store(true);
    std::lock_guard<std::mutex> lock(sceneLock);
  });
  PassLoop loop(manager);
  {
    std::lock_guard<std::mutex> lock(sceneLock);
    manager.addTimer(0, blocking.get());
    const auto deadline = steady_clock::now() + kPatience;
    while (!inHandler.load() && steady_clock::now() < deadline) {
      std::this_thread::sleep_for(milliseconds(1));
    }
    ASSERT_TRUE(inHandler.load());
    manager.addTimer(0, b_.get());
  }
  ASSERT_TRUE(events_.waitForCount(2, kPatience));
  EXPECT_EQ(fired(), (std::vector<std::string>{"a", "b"}));
}

TEST_F(TimerEventManagerTest, StaleIdOfOneReceiverDoesNotCancelAnotherReceiversTimer) {
  const int32_t staleId = manager_.addTimer(-1, a_.get());
  manager_.activateTimers();
  const int32_t idOfB = manager_.addTimer(1000, b_.get());
  ASSERT_EQ(staleId, idOfB);  // the id was handed out again

  manager_.killTimer(staleId, a_.get());
  EXPECT_EQ(pendingIds(), std::vector<int32_t>{idOfB});
  manager_.killTimer(idOfB, b_.get());
  EXPECT_TRUE(manager_.pendingTimers().empty());
}

TEST_F(TimerEventManagerTest, KillByIdAloneOrByReceiverRemovesWhicheverTimersMatch) {
  manager_.addTimer(100, a_.get());
  manager_.addTimer(200, b_.get());
  manager_.addTimer(300, a_.get());
  manager_.addTimer(400, b_.get());
  manager_.killTimer(2);
  ASSERT_EQ(manager_.pendingTimers().size(), 3u);
  EXPECT_EQ(manager_.pendingTimers()[0].receiverIdentity, a_.get());
  manager_.killReceiverTimers(a_.get());
  EXPECT_EQ(pendingIds(), std::vector<int32_t>{4});
}

TEST_F(TimerEventManagerTest, ReceiverDestroyedBeforeExpiryGetsNoEvent) {
  manager_.addTimer(-1, a_.get());
  manager_.addTimer(-1, b_.get());
  a_.reset();
  manager_.processNextEvent();
  EXPECT_TRUE(fired().empty());
  EXPECT_FALSE(logs_.contains("send timer event"));
  EXPECT_EQ(pendingIds(), std::vector<int32_t>{2});  // the dead receiver's timer is gone
  manager_.processNextEvent();
  EXPECT_EQ(fired(), std::vector<std::string>{"b"});
}

// ---------------------------------------------------------------------------------------------
// The thread

TEST_F(TimerEventManagerTest, ThreadFiresTimersInExpiryOrder) {
  TimerEventManager manager;  // real clock
  PassLoop loop(manager);
  const auto start = steady_clock::now();
  manager.addTimer(150, a_.get());
  manager.addTimer(50, b_.get());
  manager.addTimer(100, c_.get());
  ASSERT_TRUE(events_.waitForCount(3, kPatience));
  EXPECT_EQ(fired(), (std::vector<std::string>{"b", "c", "a"}));
  EXPECT_GE(steady_clock::now() - start, milliseconds(140));
}

TEST_F(TimerEventManagerTest, IdleThreadBlocksInSelectInsteadOfSpinning) {
  TimerEventManager manager;
  PassLoop loop(manager);
  ASSERT_TRUE(waitUntilInSelect(manager));
  std::this_thread::sleep_for(milliseconds(300));
  EXPECT_TRUE(manager.inSelect());
  EXPECT_EQ(logs_.count("process next event ..."), 1);
  EXPECT_EQ(logs_.count("before select, timeval is NULL"), 1);
}

TEST(TimerEventManagerInstanceTest, ProcessWideInstanceIsOneObject) {
  EXPECT_NE(TimerEventManager::getInstance(), nullptr);
  EXPECT_EQ(TimerEventManager::getInstance(), TimerEventManager::getInstance());
}

}  // namespace
}  // namespace zorvik
