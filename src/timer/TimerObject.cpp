// TimerObject: arms and cancels an object's one timer with the timer event manager.
#include "timer/TimerObject.h"

#include <cassert>

#include "server/Log.h"
#include "timer/TimerEventManager.h"

namespace zorvik {

void TimerObject::startTimer(int32_t intervalMs) {
  ZLOG(kLogInfo) << "start timer, interval=" << intervalMs;
  if (timerId_.load() != kNoTimer) {
    ZLOG(kLogError) << "object has existing timer";
    return;
  }
  // The manager only keeps a weak owner of its receivers: an object that no std::shared_ptr
  // owns would never receive its event.
  assert(!weak_from_this().expired() && "a timer receiver must be owned by a std::shared_ptr");
  TimerEventManager::getInstance()->addTimer(intervalMs, this, &timerId_);
}

void TimerObject::killTimer() {
  const int32_t id = timerId_.load();
  ZLOG(kLogInfo) << "kill timer, id= " << id;
  if (id == kNoTimer) {
    ZLOG(kLogError) << "object has not existing timer";
    return;
  }
  // Not found: the timer already expired and its event is on its way; it must be ignored.
  if (!TimerEventManager::getInstance()->killTimer(id, this)) firingCancelled_.store(true);
  timerId_.store(kNoTimer);
}

}  // namespace zorvik
