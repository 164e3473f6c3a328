// TimerProbe: a timer receiver for tests that records its events in a shared EventLog and can
// run a hook from inside timerEvent(). Must be owned by a std::shared_ptr, like every receiver.
// Thread-safe: events may arrive on another thread than the one that reads them.
#ifndef ZORVIK_TESTS_TIMER_TIMERPROBE_H_
#define ZORVIK_TESTS_TIMER_TIMERPROBE_H_

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "timer/TimerObject.h"

namespace zorvik {

// The names of the probes that received an event, in order.
class EventLog {
 public:
  void record(const std::string& name) {
    std::lock_guard<std::mutex> lock(mutex_);
    names_.push_back(name);
    changed_.notify_all();
  }
  std::vector<std::string> names() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return names_;
  }
  // Waits until `count` events arrived; false after `timeout`.
  bool waitForCount(size_t count, std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, timeout, [&] { return names_.size() >= count; });
  }

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<std::string> names_;  // guarded by mutex_
};

class TimerProbe : public TimerObject {
 public:
  using Hook = std::function<void(TimerProbe&)>;

  TimerProbe(std::string name, EventLog& log, Hook hook = Hook())
      : name_(std::move(name)), log_(log), hook_(std::move(hook)) {}

  void timerEvent() override {
    TimerObject::timerEvent();
    log_.record(name_);
    if (hook_) hook_(*this);
  }

 private:
  const std::string name_;
  EventLog& log_;
  const Hook hook_;
};

}  // namespace zorvik

#endif  // ZORVIK_TESTS_TIMER_TIMERPROBE_H_
