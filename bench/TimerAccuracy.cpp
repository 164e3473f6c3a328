#include "TimerAccuracy.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "server/Log.h"
#include "timer/TimerEventManager.h"
#include "timer/TimerObject.h"

namespace zorvik {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using WallClock = std::chrono::system_clock;

int64_t wallMicros() {
  return std::chrono::duration_cast<microseconds>(WallClock::now().time_since_epoch()).count();
}

// The intervals of one timer: the period plus its own random jitter each time.
class Intervals {
 public:
  Intervals(const TimerAccuracy::Plan& plan, int index)
      : period_(plan.period), jitterMs_(plan.jitterMs), random_(static_cast<unsigned>(index + 1)) {}

  milliseconds next() {
    if (jitterMs_ <= 1) return period_;
    return period_ + milliseconds(random_() % static_cast<unsigned>(jitterMs_));
  }

 private:
  const milliseconds period_;
  const int jitterMs_;
  std::minstd_rand random_;
};

// Collects samples from the firing thread while the window is open.
class Recorder {
 public:
  void open() { open_.store(true); }
  void close() { open_.store(false); }
  void record(int64_t lateUs) {
    if (!open_.load()) return;
    std::lock_guard<std::mutex> lock(mutex_);
    samples_.add(static_cast<double>(lateUs));
  }
  Samples take() {
    std::lock_guard<std::mutex> lock(mutex_);
    return samples_;
  }

 private:
  std::atomic<bool> open_{false};
  std::mutex mutex_;
  Samples samples_;  // guarded by mutex_
};

// A daemon timer that notes how late it fired and arms itself again while `rearm` holds.
class ProbeTimer : public TimerObject {
 public:
  ProbeTimer(Recorder& recorder, const std::atomic<bool>& rearm, Intervals intervals)
      : recorder_(recorder), rearm_(rearm), intervals_(intervals) {}

  void arm() {
    const milliseconds interval = intervals_.next();
    dueUs_ = wallMicros() + std::chrono::duration_cast<microseconds>(interval).count();
    startTimer(static_cast<int32_t>(interval.count()));
  }

  void timerEvent() override {
    TimerObject::timerEvent();
    recorder_.record(wallMicros() - dueUs_);
    if (rearm_.load()) arm();
  }

 private:
  Recorder& recorder_;
  const std::atomic<bool>& rearm_;
  Intervals intervals_;  // used by whoever arms: first the arming thread, then the timer thread
  int64_t dueUs_ = 0;    // written before arming, read by the timer thread when it fires
};

// Sends each log line to `path` as one datagram, as syslog() does.
LogSink datagramSink(const std::string& path) {
  const int out = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
  connect(out, reinterpret_cast<sockaddr*>(&address), sizeof(address));
  return [out](int, const std::string& text) { send(out, text.data(), text.size(), 0); };
}

// Arms timer 0..pending-1 one after another, spread over one period.
template <typename Arm>
void armSpread(const TimerAccuracy::Plan& plan, Arm arm) {
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < plan.pending; ++i) {
    std::this_thread::sleep_until(start + plan.period * i / plan.pending);
    arm(i);
  }
}

void waitThroughWindow(const TimerAccuracy::Plan& plan, Recorder& recorder) {
  std::this_thread::sleep_for(plan.period * 2);
  recorder.open();
  std::this_thread::sleep_for(plan.window);
  recorder.close();
}

// After the window: every timer fires once more without re-arming, then none is left.
milliseconds drainTime(const TimerAccuracy::Plan& plan) {
  return plan.period * 2 + milliseconds(plan.jitterMs);
}

}  // namespace

Samples TimerAccuracy::daemonTimers(const Plan& plan, const std::string& logSocket) {
  setLogSink(datagramSink(logSocket));
  TimerEventManager::startThread();
  Recorder recorder;
  std::atomic<bool> rearm{true};
  std::vector<std::shared_ptr<ProbeTimer>> timers;
  for (int i = 0; i < plan.pending; ++i) {
    timers.push_back(std::make_shared<ProbeTimer>(recorder, rearm, Intervals(plan, i)));
  }
  armSpread(plan, [&](int i) { timers[i]->arm(); });
  waitThroughWindow(plan, recorder);
  rearm.store(false);
  std::this_thread::sleep_for(drainTime(plan));
  // The idle timer thread's last lines go nowhere: this process has no system log.
  setLogSink([](int, const std::string&) {});
  return recorder.take();
}

Samples TimerAccuracy::conditionVariableTimers(const Plan& plan) {
  Recorder recorder;
  std::mutex mutex;
  std::condition_variable changed;
  bool stopping = false;                               // guarded by mutex
  std::multimap<WallClock::time_point, int> dueTimes;  // guarded by mutex
  std::vector<Intervals> intervals;                    // guarded by mutex
  for (int i = 0; i < plan.pending; ++i) intervals.emplace_back(plan, i);

  std::thread firing([&] {
    std::unique_lock<std::mutex> lock(mutex);
    while (!stopping) {
      if (dueTimes.empty()) {
        changed.wait(lock);
        continue;
      }
      if (changed.wait_until(lock, dueTimes.begin()->first) == std::cv_status::no_timeout) {
        continue;
      }
      const WallClock::time_point now = WallClock::now();
      while (!dueTimes.empty() && dueTimes.begin()->first <= now) {
        const auto due = dueTimes.begin();
        recorder.record(std::chrono::duration_cast<microseconds>(now - due->first).count());
        const int index = due->second;
        dueTimes.erase(due);
        dueTimes.emplace(now + intervals[index].next(), index);
      }
    }
  });
  armSpread(plan, [&](int i) {
    {
      std::lock_guard<std::mutex> lock(mutex);
      dueTimes.emplace(WallClock::now() + intervals[i].next(), i);
    }
    changed.notify_all();
  });
  waitThroughWindow(plan, recorder);
  {
    std::lock_guard<std::mutex> lock(mutex);
    stopping = true;
  }
  changed.notify_all();
  firing.join();
  return recorder.take();
}

}  // namespace zorvik
