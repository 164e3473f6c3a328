// TimerAccuracy: how late timers fire against their due time, in microseconds, with a number
// of timers kept pending. The timers are armed one after another over one period, and every
// timer re-arms itself when it fires (as a scene's next action does), so the number pending
// stays constant and the firings stay evenly spread; the lateness of each firing in the
// measuring window is one sample.
//
// daemonTimers() uses the daemon's own timer thread (TimerEventManager and TimerObject) in this
// process, its log lines sent over a datagram socket to a drain as syslog sends them to the
// router's log daemon. conditionVariableTimers() is the baseline: one thread, a sorted map of
// due times and std::condition_variable::wait_until, no logging.
//
// Threading: each call drives its own threads and returns when they have stopped re-arming.
#ifndef ZORVIK_BENCH_TIMERACCURACY_H_
#define ZORVIK_BENCH_TIMERACCURACY_H_

#include <chrono>
#include <string>

#include "Samples.h"

namespace zorvik {

class TimerAccuracy {
 public:
  struct Plan {
    int pending;                       // timers kept armed
    std::chrono::milliseconds period;  // each timer's interval...
    int jitterMs;                      // ...plus a random 0 to jitterMs - 1 milliseconds
    std::chrono::milliseconds window;  // measuring time after two periods of settling
  };

  // `logSocket` is the path of a bound datagram socket that receives the log lines.
  static Samples daemonTimers(const Plan& plan, const std::string& logSocket);
  static Samples conditionVariableTimers(const Plan& plan);
};

}  // namespace zorvik

#endif  // ZORVIK_BENCH_TIMERACCURACY_H_
