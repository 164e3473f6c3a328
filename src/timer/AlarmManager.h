// AlarmManager: schedules many alarms with one timer.
//
// For every registered alarm the manager keeps the milliseconds until its firing as they were
// when computed; they are never brought up to date for the time that passes, and the nearest
// alarm is chosen by comparing these stored values as they stand. One TimerReceiver is armed for
// the smallest of them. When it fires, the nearest alarm's onAlarm() runs, a weekly alarm is
// kept with the milliseconds to its next firing, a finished one is dropped (so is one whose
// text can no longer be read: the timer thread must survive it), and the receiver is armed for
// the new nearest alarm. Arming takes the low 32 bits of the milliseconds as a signed
// interval, so values beyond about 24.8 days wrap. Alarms are identified by address.
//
// Ownership: entries own their alarms through shared pointers; the manager owns its receiver.
// getInstance() is the process-wide manager, never destroyed. Other instances (tests) cancel
// the receiver's timer when destroyed and must not be destroyed while it may fire.
//
// Threading: `mutex_` guards the entries and the nearest one. Operations may be called from any
// thread; fireNearest() runs on the timer thread and calls onAlarm() with the mutex held, so
// onAlarm() must hand long work to another thread. The mutex is recursive because onAlarm() may
// change the registrations (an alarm that removes itself, for one). The mutex is taken before the
// timer manager's, never after it.
#ifndef ZORVIK_TIMER_ALARMMANAGER_H_
#define ZORVIK_TIMER_ALARMMANAGER_H_

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <vector>

#include "server/Mutex.h"
#include "timer/AlarmObject.h"
#include "timer/TimerReceiver.h"

namespace zorvik {

class AlarmManager {
 public:
  // One registered alarm and its milliseconds until firing, as last computed.
  struct AlarmEntry {
    int64_t milliseconds;
    std::shared_ptr<AlarmObject> alarm;
  };

  // The local wall-clock time; the default reads the real clock.
  using LocalClock = std::function<boost::posix_time::ptime()>;

  explicit AlarmManager(LocalClock localNow = LocalClock());
  AlarmManager(const AlarmManager&) = delete;
  AlarmManager& operator=(const AlarmManager&) = delete;
  ~AlarmManager();

  // The process-wide manager, created on first use and never destroyed.
  static AlarmManager* getInstance();

  // Registers every enabled, valid alarm with a future firing; spent alarms are cleared.
  void setAlarms(const std::vector<std::shared_ptr<AlarmObject>>& alarms);
  // Registers an alarm with a future firing, unless it is registered with the same value.
  void addAlarm(const std::shared_ptr<AlarmObject>& alarm);
  void removeAlarm(const std::shared_ptr<AlarmObject>& alarm);
  // Registers the alarm again after its text changed.
  void updateAlarm(const std::shared_ptr<AlarmObject>& alarm);

  // The receiver's timer fired: fires the nearest alarm and re-arms for the next one.
  void fireNearest();

  // A copy of the entries in registration order.
  std::vector<AlarmEntry> entries() const;
  // The alarm the receiver is armed for, or null.
  std::shared_ptr<AlarmObject> nearestAlarm() const;
  const std::shared_ptr<TimerReceiver>& receiver() const { return receiver_; }

 private:
  using EntryList = std::list<AlarmEntry>;

  // Chooses the smallest stored value (the earliest registered among equals) and arms for it.
  void armNearest() REQUIRES(mutex_);
  void armReceiver(int64_t milliseconds) REQUIRES(mutex_);
  // Makes a new entry the nearest when there is none or it fires sooner, and arms for it.
  void takeIfNearest(AlarmEntry* added) REQUIRES(mutex_);
  EntryList::iterator findEntry(const AlarmObject* alarm) REQUIRES(mutex_);
  bool isNearest(EntryList::const_iterator entry) const REQUIRES(mutex_);
  // Applies the fired alarm's outcome to the nearest entry: a fresh value or removal.
  void rescheduleFired(const std::shared_ptr<AlarmObject>& alarm) REQUIRES(mutex_);
  // True while the nearest entry is still the one holding the fired `alarm`.
  bool nearestHolds(const std::shared_ptr<AlarmObject>& alarm) const REQUIRES(mutex_);
  // Removes the fired alarm's entry.
  void dropFiredEntry(const std::shared_ptr<AlarmObject>& alarm) REQUIRES(mutex_);

  const LocalClock localNow_;
  mutable RecursiveMutex mutex_;
  EntryList entries_ GUARDED_BY(mutex_);
  AlarmEntry* nearest_ GUARDED_BY(mutex_) = nullptr;  // an element of entries_ or null
  const std::shared_ptr<TimerReceiver> receiver_;
};

}  // namespace zorvik

#endif  // ZORVIK_TIMER_ALARMMANAGER_H_
