#include "support/TimerThread.h"

#include <mutex>

#include "timer/TimerEventManager.h"

namespace zorvik {

void startTimerThreadOnce() {
  static std::once_flag started;
  std::call_once(started, [] { TimerEventManager::startThread(); });
}

}  // namespace zorvik
