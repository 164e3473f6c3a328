// AlarmManager: keeps the registered alarms and arms one receiver for the nearest.
#include "timer/AlarmManager.h"

#include <exception>

#include "server/Log.h"

namespace zorvik {

AlarmManager::AlarmManager(LocalClock localNow)
    : localNow_(localNow ? std::move(localNow) : &AlarmObject::localNow),
      receiver_(std::make_shared<TimerReceiver>(*this)) {}

AlarmManager::~AlarmManager() {
  MutexLock lock(mutex_);
  if (receiver_->isRunning()) receiver_->killTimer();
}

AlarmManager* AlarmManager::getInstance() {
  static AlarmManager* const instance = new AlarmManager();
  return instance;
}

void AlarmManager::setAlarms(const std::vector<std::shared_ptr<AlarmObject>>& alarms) {
  // Meant for start-up, before other threads use the manager; the lock costs nothing then and
  // keeps a late caller safe.
  MutexLock lock(mutex_);
  for (const std::shared_ptr<AlarmObject>& alarm : alarms) {
    if (!alarm->isEnabled() || !alarm->isValid()) continue;
    const int64_t milliseconds = alarm->getFirstAlarm(localNow_());
    if (milliseconds < 0) {
      alarm->clearAlarm();  // it will never fire again
      continue;
    }
    entries_.push_back({milliseconds, alarm});
  }
  armNearest();
}

void AlarmManager::addAlarm(const std::shared_ptr<AlarmObject>& alarm) {
  MutexLock lock(mutex_);
  const int64_t milliseconds = alarm->getFirstAlarm(localNow_());
  if (milliseconds < 0) return;
  for (const AlarmEntry& entry : entries_) {
    if (entry.milliseconds == milliseconds && entry.alarm == alarm) return;
  }
  entries_.push_back({milliseconds, alarm});
  takeIfNearest(&entries_.back());
}

void AlarmManager::removeAlarm(const std::shared_ptr<AlarmObject>& alarm) {
  MutexLock lock(mutex_);
  const EntryList::iterator entry = findEntry(alarm.get());
  if (entry == entries_.end()) return;
  if (!isNearest(entry)) {
    entries_.erase(entry);
    return;
  }
  nearest_ = nullptr;
  entries_.erase(entry);
  receiver_->killTimer();
  armNearest();
}

void AlarmManager::updateAlarm(const std::shared_ptr<AlarmObject>& alarm) {
  MutexLock lock(mutex_);
  bool wasNearest = false;
  const EntryList::iterator entry = findEntry(alarm.get());
  if (entry != entries_.end()) {
    wasNearest = isNearest(entry);
    if (wasNearest) nearest_ = nullptr;
    entries_.erase(entry);
  }
  const int64_t milliseconds = alarm->getFirstAlarm(localNow_());
  if (wasNearest && milliseconds < 0) {
    receiver_->killTimer();
    armNearest();
    return;
  }
  // Unlike addAlarm, a value without a future firing is registered too: being the smallest, it
  // is armed at once and the alarm gets its onAlarm() on the timer thread's next pass.
  entries_.push_back({milliseconds, alarm});
  if (wasNearest && nearest_ == nullptr) {
    receiver_->killTimer();
    armNearest();
    return;
  }
  takeIfNearest(&entries_.back());
}

void AlarmManager::takeIfNearest(AlarmEntry* added) {
  if (nearest_ == nullptr) {
    nearest_ = added;
  } else if (added->milliseconds < nearest_->milliseconds) {
    nearest_ = added;
    receiver_->killTimer();
  } else {
    return;
  }
  armReceiver(added->milliseconds);
}

void AlarmManager::fireNearest() {
  MutexLock lock(mutex_);
  if (nearest_ == nullptr) {
    ZLOG(kLogError) << "Error: nearest alarm is null ???";
    return;
  }
  // Keeps the alarm alive even if onAlarm() unregisters it.
  const std::shared_ptr<AlarmObject> alarm = nearest_->alarm;
  try {
    alarm->onAlarm();
    rescheduleFired(alarm);
  } catch (const std::exception& e) {
    // This runs on the timer thread, which must survive an alarm whose text cannot be read:
    // the alarm is dropped and the others stay scheduled.
    ZLOG(kLogError) << "alarm failed: " << e.what();
    dropFiredEntry(alarm);
  }
  nearest_ = nullptr;
  armNearest();
}

void AlarmManager::rescheduleFired(const std::shared_ptr<AlarmObject>& alarm) {
  if (alarm->isPeriod()) {
    const int64_t milliseconds = alarm->getNextAlarm(localNow_());
    if (milliseconds >= 0) {
      if (nearestHolds(alarm)) nearest_->milliseconds = milliseconds;
      return;
    }
  }
  if (alarm->isEnabled()) alarm->clearAlarm();
  dropFiredEntry(alarm);
}

bool AlarmManager::nearestHolds(const std::shared_ptr<AlarmObject>& alarm) const {
  // onAlarm() may have changed the registration itself; then the fired entry is no longer ours.
  return nearest_ != nullptr && nearest_->alarm == alarm;
}

void AlarmManager::dropFiredEntry(const std::shared_ptr<AlarmObject>& alarm) {
  if (!nearestHolds(alarm)) return;
  for (auto it = entries_.begin(); it != entries_.end(); ++it) {
    if (isNearest(it)) {
      nearest_ = nullptr;
      entries_.erase(it);
      return;
    }
  }
}

void AlarmManager::armNearest() {
  nearest_ = nullptr;
  for (AlarmEntry& entry : entries_) {
    if (nearest_ == nullptr || entry.milliseconds < nearest_->milliseconds) nearest_ = &entry;
  }
  if (nearest_ != nullptr) armReceiver(nearest_->milliseconds);
}

void AlarmManager::armReceiver(int64_t milliseconds) {
  // Timer intervals are 32-bit: the low 32 bits are taken as a signed interval, so an alarm more
  // than about 24.8 days away wraps (to a negative interval for 24.8 to 49.7 days).
  receiver_->startTimer(static_cast<int32_t>(static_cast<uint32_t>(milliseconds)));
}

AlarmManager::EntryList::iterator AlarmManager::findEntry(const AlarmObject* alarm) {
  for (auto it = entries_.begin(); it != entries_.end(); ++it) {
    if (it->alarm.get() == alarm) return it;
  }
  return entries_.end();
}

bool AlarmManager::isNearest(EntryList::const_iterator entry) const { return &*entry == nearest_; }

std::vector<AlarmManager::AlarmEntry> AlarmManager::entries() const {
  MutexLock lock(mutex_);
  return std::vector<AlarmEntry>(entries_.begin(), entries_.end());
}

std::shared_ptr<AlarmObject> AlarmManager::nearestAlarm() const {
  MutexLock lock(mutex_);
  return nearest_ == nullptr ? nullptr : nearest_->alarm;
}

}  // namespace zorvik
