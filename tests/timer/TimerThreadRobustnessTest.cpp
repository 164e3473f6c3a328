// The timer thread survives what once stopped it: a timer added as a pass goes to sleep, a throw.
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <new>

#include "support/LogCapture.h"
#include "timer/TimerEventManager.h"
#include "timer/TimerObject.h"

namespace zorvik {
namespace {

struct Receiver : TimerObject {
  void timerEvent() override {
    TimerObject::timerEvent();
    ++events;
    if (onEvent) onEvent();
  }
  std::atomic<int> events{0};
  std::function<void()> onEvent;
};

TEST(TimerThreadRobustnessTest, TimerAddedAsThePassGoesToSleepWakesIt) {
  TimerEventManager manager;
  auto receiver = std::make_shared<Receiver>();
  // Logged once the pass has chosen to wait without a timeout (empty list), before it waits. The
  // timer is added from another thread, as the timer lock never follows the log's lock.
  const LogSink previous = setLogSink([&](int, const std::string& text) {
    if (text.find("before select, timeval is NULL") == std::string::npos) return;
    std::async(std::launch::async, [&] { manager.addTimer(0, receiver.get()); }).wait();
  });
  auto passes = std::async(std::launch::async, [&manager] {
    for (int pass = 0; pass < 2; ++pass) manager.processNextEvent();
  });
  EXPECT_EQ(passes.wait_for(std::chrono::seconds(2)), std::future_status::ready);
  manager.wakeUp();  // frees a first pass that slept through the timer (the second fires it)
  passes.wait();
  EXPECT_EQ(receiver->events, 1);
  setLogSink(previous);
}

TEST(TimerThreadRobustnessTest, EventWhoseHandlerThrowsIsLoggedAndDropped) {
  LogCapture log;
  TimerEventManager manager;
  auto failing = std::make_shared<Receiver>();
  failing->onEvent = [] { throw std::bad_alloc(); };  // as a handler out of memory would
  manager.addTimer(0, failing.get());
  EXPECT_NO_THROW(manager.activateTimers());
  const std::string last = log.lines().back().text;
  EXPECT_EQ(last.rfind("[ZORVIK ERROR TimerEventManager.cpp:", 0), 0u) << last;
  EXPECT_EQ(LogCapture::messageOf(last), "timer event failed: std::bad_alloc");
}

}  // namespace
}  // namespace zorvik
