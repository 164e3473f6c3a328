// TimerObject: base class of everything that waits for a timer of the TimerEventManager.
//
// An object owns at most one pending timer and remembers its id (-1 when there is none). The
// expiry arrives through the virtual timerEvent() on the timer thread; overrides call the base
// first, which forgets the id. A timer only fires for an object that is owned by a
// std::shared_ptr: the manager keeps a weak owner of the receiver and holds a strong one while
// timerEvent() runs, so an object dropped by its owner never receives a late event and is never
// destroyed while its handler runs. Arming a timer on an object that no std::shared_ptr owns is a
// programming error (asserted in debug builds; in release builds its timer is dropped unfired).
//
// Threading: timerId is atomic, so the timer thread and other threads may look at it freely;
// the owner must still not call startTimer() or killTimer() concurrently on one object.
#ifndef ZORVIK_TIMER_TIMEROBJECT_H_
#define ZORVIK_TIMER_TIMEROBJECT_H_

#include <atomic>
#include <cstdint>
#include <memory>

namespace zorvik {

class TimerObject : public std::enable_shared_from_this<TimerObject> {
 public:
  static constexpr int32_t kNoTimer = -1;

  TimerObject() = default;
  TimerObject(const TimerObject&) = delete;
  TimerObject& operator=(const TimerObject&) = delete;
  virtual ~TimerObject() = default;

  // Arms a one-shot timer; refused with "object has existing timer" while one is pending.
  void startTimer(int32_t intervalMs);
  // Cancels the pending timer; "object has not existing timer" when there is none. When the
  // manager no longer holds the timer (it expired and its event is being delivered), the
  // object remembers that the coming event was cancelled (see takeCancelledFiring).
  void killTimer();
  // True while a timer is pending.
  bool isRunning() const { return timerId_.load() != kNoTimer; }
  int32_t timerId() const { return timerId_.load(); }

  // Called on the timer thread when the timer expires. The base forgets the timer id.
  virtual void timerEvent() { timerId_.store(kNoTimer); }

  // True once when killTimer() came too late: the timer had already expired and its event was
  // on its way to timerEvent(). The event that arrives then is stale and must be ignored, even
  // if the object has been armed again meanwhile (ids are reused). Reading clears the mark.
  bool takeCancelledFiring() { return firingCancelled_.exchange(false); }

 private:
  std::atomic<int32_t> timerId_{kNoTimer};
  std::atomic<bool> firingCancelled_{false};
};

}  // namespace zorvik

#endif  // ZORVIK_TIMER_TIMEROBJECT_H_
