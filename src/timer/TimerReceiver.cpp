// TimerReceiver: passes the alarm manager's timer event on to the manager.
#include "timer/TimerReceiver.h"

#include "timer/AlarmManager.h"

namespace zorvik {

TimerReceiver::TimerReceiver(AlarmManager& manager) : manager_(manager) {}

void TimerReceiver::timerEvent() {
  // Forget the fired timer first, so that firing the alarm can arm the receiver again.
  TimerObject::timerEvent();
  manager_.fireNearest();
}

}  // namespace zorvik
