// TestAlarm: an alarm for tests that counts its firings and clearings and can run a hook from
// onAlarm(). Like every alarm it has no lock: the tests serialise access.
#ifndef ZORVIK_TESTS_TIMER_TESTALARM_H_
#define ZORVIK_TESTS_TIMER_TESTALARM_H_

#include <functional>
#include <string>

#include "timer/AlarmObject.h"

namespace zorvik {

class TestAlarm : public AlarmObject {
 public:
  using Hook = std::function<void(TestAlarm&)>;

  explicit TestAlarm(const std::string& text = "", Hook hook = Hook()) : hook_(std::move(hook)) {
    setAlarmText(text);
  }

  void onAlarm() override {
    ++alarms_;
    if (hook_) hook_(*this);
  }
  bool clearAlarm() override {
    ++clears_;
    return AlarmObject::clearAlarm();
  }

  int alarms() const { return alarms_; }
  int clears() const { return clears_; }

 private:
  const Hook hook_;
  int alarms_ = 0;
  int clears_ = 0;
};

}  // namespace zorvik

#endif  // ZORVIK_TESTS_TIMER_TESTALARM_H_
