// TimerReceiver: the one timer of an AlarmManager.
//
// The alarm manager schedules all its alarms with a single receiver armed for the nearest one;
// when the timer fires, the receiver forgets its timer id and lets the manager fire the nearest
// alarm and re-arm it.
//
// Ownership: created and owned (through a std::shared_ptr) by its AlarmManager, which must
// outlive every firing. Threading: timerEvent() runs on the timer thread; the manager's mutex
// serialises it against the manager's other operations.
#ifndef ZORVIK_TIMER_TIMERRECEIVER_H_
#define ZORVIK_TIMER_TIMERRECEIVER_H_

#include "timer/TimerObject.h"

namespace zorvik {

class AlarmManager;

class TimerReceiver : public TimerObject {
 public:
  explicit TimerReceiver(AlarmManager& manager);

  void timerEvent() override;

 private:
  AlarmManager& manager_;
};

}  // namespace zorvik

#endif  // ZORVIK_TIMER_TIMERRECEIVER_H_
