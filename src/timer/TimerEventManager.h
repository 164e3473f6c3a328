// TimerEventManager: the daemon's one timer service.
//
// Keeps every pending one-shot timer in firing order (wall-clock expiry, then registration) and
// indexed by id, so that arming, cancelling and firing cost O(log n); it runs one thread
// that sleeps in select() until the earliest timer is due or another thread wakes it through a
// self-pipe. Each pass of the thread fires at most one due timer by calling its receiver's
// timerEvent(). Timers are armed and cancelled through TimerObject, which owns the timer id.
//
// Ownership: the manager owns its TimerInfo records. A record refers to its receiver weakly (the
// receiver must be owned by a std::shared_ptr); when the timer fires, the thread holds a strong
// owner of the receiver for the duration of timerEvent(), and a receiver that is already gone is
// dropped without an event. The raw receiver pointer is kept for identity only, never followed.
//
// Threading: `mutex_` guards the list and its records. It is a plain mutex: nothing that runs
// under it comes back into the manager. It is released before select() and before timerEvent()
// is called, so a receiver may take locks of its own and may arm or cancel timers from inside
// timerEvent(). The in-select flag is atomic: the thread sets it under `mutex_` in the same step
// that computes its timeout from the list, and clears it when select() returns; whoever changes
// the list afterwards finds it set and wakes the thread (clearing it, so that one wait gets one
// wake-up). No change of the list can thus fall between the timeout's computation and the wait.
// getInstance() is the process-wide manager, never destroyed; startThread() gives it its
// thread. Other instances (tests) have no thread of their own: their passes are driven by the
// caller, and an instance must not be destroyed while a thread is inside one of its passes.
#ifndef ZORVIK_TIMER_TIMEREVENTMANAGER_H_
#define ZORVIK_TIMER_TIMEREVENTMANAGER_H_

#include <sys/select.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "server/Mutex.h"

namespace zorvik {

class TimerObject;

class TimerEventManager {
 public:
  // A wall-clock instant or an interval as (seconds, microseconds). Expiries keep the sum of
  // the two microsecond parts without carrying, so they may reach 1998999 microseconds.
  struct TimeValue {
    int64_t seconds;
    int64_t microseconds;
  };

  // One pending timer.
  struct TimerInfo {
    int32_t id;
    TimeValue interval;
    TimeValue expiry;
    std::weak_ptr<TimerObject> receiver;
    const TimerObject* receiverIdentity;  // for comparisons only
  };

  // The source of wall-clock time; the default reads gettimeofday().
  using Clock = std::function<TimeValue()>;

  explicit TimerEventManager(Clock clock = Clock());
  TimerEventManager(const TimerEventManager&) = delete;
  TimerEventManager& operator=(const TimerEventManager&) = delete;
  ~TimerEventManager();

  // The process-wide manager, created on first use and never destroyed.
  static TimerEventManager* getInstance();
  // Starts the detached timer thread of the process-wide manager; later calls do nothing.
  static void startThread();

  // Arms a one-shot timer `intervalMs` from now for `receiver`, which must be owned by a
  // std::shared_ptr. Returns the timer id.
  int32_t addTimer(int32_t intervalMs, TimerObject* receiver);
  // Removes the timer with this id, whoever it belongs to.
  void killTimer(int32_t id);
  // Removes the timer with this id only when it belongs to `receiver`: ids are handed out again
  // once a timer is gone, so an id a receiver still remembers may name another object's timer.
  // False when there was no such timer (for example because it expired a moment ago).
  bool killTimer(int32_t id, const TimerObject* receiver);
  // Removes every timer of `receiver`.
  void killReceiverTimers(const TimerObject* receiver);

  // The thread body: passes forever.
  void run();
  // One pass: waits until the head timer is due or a wake-up comes, then fires at most one.
  void processNextEvent();
  // Fires the head timer when it is due. An exception from its receiver is logged at the error
  // level and the event dropped.
  void activateTimers();
  // Writes the wake-up bytes to the self-pipe.
  void wakeUp();

  // -1, 0 or 1 as (s1, us1) is earlier than, equal to or later than (s2, us2).
  static int compareTime(int64_t s1, int64_t us1, int64_t s2, int64_t us2);
  // The clock's time with the microseconds brought into 0..999999.
  TimeValue currentTime() const;

  // A copy of the pending timers in firing order.
  std::vector<TimerInfo> pendingTimers() const;
  // True from the moment a pass has decided how long to wait until its select() returns or a
  // wake-up has been sent for it.
  bool inSelect() const { return inSelect_.load(); }

 private:
  friend class TimerObject;

  // addTimer that also stores the id in `idSlot` before the lock is released, so that a timer
  // firing at once on the timer thread can never find the id not yet stored.
  int32_t addTimer(int32_t intervalMs, TimerObject* receiver, std::atomic<int32_t>* idSlot);

  // Firing order: expiry (whole seconds carried out of the microseconds, as compareTime does),
  // then registration, so that equal expiries fire first registered, first fired.
  struct FiringKey {
    int64_t seconds;
    int64_t microseconds;
    uint64_t registration;
    bool operator<(const FiringKey& other) const;
  };
  using TimerList = std::map<FiringKey, TimerInfo>;

  int32_t nextTimerId() const REQUIRES(mutex_);
  void insertTimer(TimerInfo info) REQUIRES(mutex_);
  void eraseTimer(TimerList::iterator timer) REQUIRES(mutex_);
  // Removes the timer with this id when `matches` accepts it; true when it did.
  bool removeTimer(int32_t id, const std::function<bool(const TimerInfo&)>& matches);
  // Removes every timer of `receiver`; true when there was any.
  bool removeReceiverTimers(const TimerObject* receiver);
  // The select() timeout for the head timer, or none when the list is empty; sets the in-select
  // flag in the same locked step.
  std::optional<TimeValue> computeTimeout();
  void wakeUpIfInSelect();
  // Calls the receiver's timerEvent(), logging what it throws.
  void deliverEvent(TimerObject& receiver);
  // Waits on the pipe; the result of select().
  int waitForEvent(const std::optional<TimeValue>& timeout, fd_set* readSet);

  const Clock clock_;
  int readFd_ = -1;
  int writeFd_ = -1;
  int maxFd_ = -1;  // -1 when there is no pipe
  mutable Mutex mutex_;
  TimerList timers_ GUARDED_BY(mutex_);
  std::map<int32_t, TimerList::iterator> timersById_ GUARDED_BY(mutex_);
  uint64_t registrations_ GUARDED_BY(mutex_) = 0;
  std::atomic<bool> inSelect_{false};
};

}  // namespace zorvik

#endif  // ZORVIK_TIMER_TIMEREVENTMANAGER_H_
