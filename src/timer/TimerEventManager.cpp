#include "timer/TimerEventManager.h"

#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <iterator>
#include <mutex>
#include <thread>
#include <tuple>

#include "server/Log.h"
#include "timer/TimerObject.h"

namespace zorvik {
namespace {

constexpr int64_t kMicrosPerSecond = 1000000;
constexpr int32_t kMillisPerSecond = 1000;
constexpr int32_t kMicrosPerMilli = 1000;
// Bytes written to the self-pipe to wake the thread, and the most one pass reads back.
constexpr char kWakeUpBytes[] = {'s', 'c'};
constexpr size_t kWakeUpSize = sizeof(kWakeUpBytes);
// Pause after a failed pass, so that a persistent failure does not spin.
constexpr std::chrono::seconds kFailurePause(1);

TimerEventManager::TimeValue systemTime() {
  struct timeval now;
  gettimeofday(&now, nullptr);
  return {static_cast<int64_t>(now.tv_sec), static_cast<int64_t>(now.tv_usec)};
}

// Carries whole seconds out of the microseconds; exactly one second is deliberately left in
// the microseconds, which is how expiries have always been compared.
void carryWholeSeconds(int64_t& seconds, int64_t& microseconds) {
  while (microseconds > kMicrosPerSecond) {
    microseconds -= kMicrosPerSecond;
    ++seconds;
  }
}

}  // namespace

TimerEventManager::TimerEventManager(Clock clock) : clock_(clock ? std::move(clock) : systemTime) {
  int fds[2] = {-1, -1};
  // Close-on-exec keeps the pipe out of the shell commands the daemon runs. A failure leaves
  // the descriptors at -1, which every pass then reports.
  if (pipe2(fds, O_CLOEXEC) == 0) {
    readFd_ = fds[0];
    writeFd_ = fds[1];
    maxFd_ = std::max(readFd_, writeFd_);
  }
}

TimerEventManager::~TimerEventManager() {
  if (readFd_ >= 0) close(readFd_);
  if (writeFd_ >= 0) close(writeFd_);
}

TimerEventManager* TimerEventManager::getInstance() {
  static TimerEventManager* const instance = new TimerEventManager();
  return instance;
}

void TimerEventManager::startThread() {
  static std::once_flag started;
  std::call_once(started, [] { std::thread(&TimerEventManager::run, getInstance()).detach(); });
}

int32_t TimerEventManager::addTimer(int32_t intervalMs, TimerObject* receiver) {
  return addTimer(intervalMs, receiver, nullptr);
}

int32_t TimerEventManager::addTimer(int32_t intervalMs, TimerObject* receiver,
                                    std::atomic<int32_t>* idSlot) {
  int32_t id;
  {
    MutexLock lock(mutex_);
    TimerInfo info;
    info.id = nextTimerId();
    // Signed division: a negative interval gives negative parts and an expiry in the past.
    info.interval = {intervalMs / kMillisPerSecond,
                     static_cast<int64_t>(intervalMs % kMillisPerSecond) * kMicrosPerMilli};
    const TimeValue now = currentTime();
    info.expiry = {now.seconds + info.interval.seconds,
                   now.microseconds + info.interval.microseconds};
    info.receiver = receiver->weak_from_this();
    info.receiverIdentity = receiver;
    id = info.id;
    insertTimer(std::move(info));
    if (idSlot != nullptr) idSlot->store(id);
  }
  wakeUpIfInSelect();
  return id;
}

void TimerEventManager::killTimer(int32_t id) {
  if (removeTimer(id, [](const TimerInfo&) { return true; })) wakeUpIfInSelect();
}

bool TimerEventManager::killTimer(int32_t id, const TimerObject* receiver) {
  const auto belongs = [receiver](const TimerInfo& info) {
    return info.receiverIdentity == receiver;
  };
  if (!removeTimer(id, belongs)) return false;
  wakeUpIfInSelect();
  return true;
}

void TimerEventManager::killReceiverTimers(const TimerObject* receiver) {
  if (removeReceiverTimers(receiver)) wakeUpIfInSelect();
}

bool TimerEventManager::removeTimer(int32_t id,
                                    const std::function<bool(const TimerInfo&)>& matches) {
  MutexLock lock(mutex_);
  const auto found = timersById_.find(id);
  if (found == timersById_.end() || !matches(found->second->second)) return false;
  eraseTimer(found->second);
  return true;
}

bool TimerEventManager::removeReceiverTimers(const TimerObject* receiver) {
  MutexLock lock(mutex_);
  bool removed = false;
  for (auto timer = timers_.begin(); timer != timers_.end();) {
    const auto next = std::next(timer);
    if (timer->second.receiverIdentity == receiver) {
      eraseTimer(timer);
      removed = true;
    }
    timer = next;
  }
  return removed;
}

void TimerEventManager::run() {
  ZLOG(kLogInfo) << "run thread to process timer event ... ";
  for (;;) processNextEvent();
}

void TimerEventManager::processNextEvent() {
  ZLOG(kLogInfo) << "process next event ...";
  if (maxFd_ == -1) {
    ZLOG(kLogError) << "Error: select pipe file create failed";
    std::this_thread::sleep_for(kFailurePause);
    return;
  }
  const std::optional<TimeValue> timeout = computeTimeout();
  fd_set readSet;
  const int result = waitForEvent(timeout, &readSet);
  if (result < 0) {
    ZLOG(kLogError) << "select can not find valid connect";
    std::this_thread::sleep_for(kFailurePause);
  } else if (result == 0) {
    ZLOG(kLogInfo) << "select timeout";
    activateTimers();
  } else if (!FD_ISSET(readFd_, &readSet)) {
    ZLOG(kLogError) << "select other event ???";
  } else {
    ZLOG(kLogInfo) << "select right event coming";
    char scratch[kWakeUpSize];
    // Only the wake-up matters, not what was written; the next pass recomputes the timeout.
    const ssize_t ignored = read(readFd_, scratch, sizeof(scratch));
    (void)ignored;
  }
}

std::optional<TimerEventManager::TimeValue> TimerEventManager::computeTimeout() {
  MutexLock lock(mutex_);
  // Decided under the lock: a timer added from now on finds the flag set and wakes the thread,
  // even before it is inside select() (the wake-up bytes then wait in the pipe).
  inSelect_.store(true);
  if (timers_.empty()) return std::nullopt;
  const TimeValue expiry = timers_.begin()->second.expiry;
  const TimeValue now = currentTime();
  ZLOG(kLogInfo) << "current time: sec=" << now.seconds << ", usec=" << now.microseconds;
  ZLOG(kLogInfo) << "timer info: sec=" << expiry.seconds << ", usec=" << expiry.microseconds;
  if (compareTime(now.seconds, now.microseconds, expiry.seconds, expiry.microseconds) >= 0) {
    ZLOG(kLogInfo) << "timer has expired, execute it right now";
    return TimeValue{0, 0};
  }
  // The expiry's microseconds are not reduced: the timeout may carry more than a second of
  // them, or, just before the expiry, negative seconds, which select() then refuses.
  TimeValue timeout{expiry.seconds - now.seconds, expiry.microseconds - now.microseconds};
  while (timeout.microseconds < 0 && timeout.seconds >= 1) {
    --timeout.seconds;
    timeout.microseconds += kMicrosPerSecond;
  }
  return timeout;
}

int TimerEventManager::waitForEvent(const std::optional<TimeValue>& timeout, fd_set* readSet) {
  FD_ZERO(readSet);
  FD_SET(readFd_, readSet);
  struct timeval selectTimeout;
  struct timeval* selectTimeoutPtr = nullptr;
  if (timeout) {
    selectTimeout.tv_sec = static_cast<time_t>(timeout->seconds);
    selectTimeout.tv_usec = static_cast<suseconds_t>(timeout->microseconds);
    selectTimeoutPtr = &selectTimeout;
    ZLOG(kLogInfo) << "before select, timeval.sec=" << timeout->seconds
                   << ", usec=" << timeout->microseconds;
  } else {
    ZLOG(kLogInfo) << "before select, timeval is NULL";
  }
  const int result = select(maxFd_ + 1, readSet, nullptr, nullptr, selectTimeoutPtr);
  inSelect_.store(false);
  return result;
}

void TimerEventManager::activateTimers() {
  ZLOG(kLogInfo) << "activate timers ...";
  std::shared_ptr<TimerObject> receiver;
  {
    MutexLock lock(mutex_);
    if (timers_.empty()) return;
    const TimeValue now = currentTime();
    const TimerList::iterator head = timers_.begin();
    const TimeValue expiry = head->second.expiry;
    if (compareTime(now.seconds, now.microseconds, expiry.seconds, expiry.microseconds) < 0) return;
    receiver = head->second.receiver.lock();
    eraseTimer(head);
  }
  // Called without the lock: the receiver may take its own locks and arm new timers.
  if (!receiver) return;
  ZLOG(kLogInfo) << "send timer event";
  deliverEvent(*receiver);
}

void TimerEventManager::deliverEvent(TimerObject& receiver) {
  // A handler that fails (a thread that could not be created, an allocation) loses its own event
  // only: this thread runs every timer of the process and must carry on.
  try {
    receiver.timerEvent();
  } catch (const std::exception& error) {
    ZLOG(kLogError) << "timer event failed: " << error.what();
  }
}

void TimerEventManager::wakeUp() {
  const ssize_t ignored = write(writeFd_, kWakeUpBytes, kWakeUpSize);
  (void)ignored;
}

void TimerEventManager::wakeUpIfInSelect() {
  // One wake-up per wait: the pipe never holds more than one pass reads, so writing never blocks.
  if (inSelect_.exchange(false)) wakeUp();
}

int TimerEventManager::compareTime(int64_t s1, int64_t us1, int64_t s2, int64_t us2) {
  carryWholeSeconds(s1, us1);
  carryWholeSeconds(s2, us2);
  if (s1 != s2) return s1 < s2 ? -1 : 1;
  if (us1 != us2) return us1 < us2 ? -1 : 1;
  return 0;
}

TimerEventManager::TimeValue TimerEventManager::currentTime() const {
  TimeValue now = clock_();
  while (now.microseconds >= kMicrosPerSecond) {
    now.microseconds -= kMicrosPerSecond;
    ++now.seconds;
  }
  while (now.microseconds < 0 && now.seconds > 0) {
    now.microseconds += kMicrosPerSecond;
    --now.seconds;
  }
  return now;
}

std::vector<TimerEventManager::TimerInfo> TimerEventManager::pendingTimers() const {
  MutexLock lock(mutex_);
  std::vector<TimerInfo> pending;
  for (const auto& [key, info] : timers_) pending.push_back(info);
  return pending;
}

bool TimerEventManager::FiringKey::operator<(const FiringKey& other) const {
  return std::tie(seconds, microseconds, registration) <
         std::tie(other.seconds, other.microseconds, other.registration);
}

// Ids start again at 1 whenever no timer is pending; otherwise the largest pending id plus 1.
int32_t TimerEventManager::nextTimerId() const {
  return timersById_.empty() ? 1 : timersById_.rbegin()->first + 1;
}

void TimerEventManager::insertTimer(TimerInfo info) {
  FiringKey key{info.expiry.seconds, info.expiry.microseconds, registrations_++};
  carryWholeSeconds(key.seconds, key.microseconds);
  const int32_t id = info.id;
  timersById_.emplace(id, timers_.emplace(key, std::move(info)).first);
}

void TimerEventManager::eraseTimer(TimerList::iterator timer) {
  timersById_.erase(timer->second.id);
  timers_.erase(timer);
}

}  // namespace zorvik
