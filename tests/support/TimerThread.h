// Starts the process-wide timer thread for a test program (once; it runs until the program ends).
#ifndef ZORVIK_TESTS_SUPPORT_TIMERTHREAD_H_
#define ZORVIK_TESTS_SUPPORT_TIMERTHREAD_H_

#include "timer/TimerEventManager.h"

namespace zorvik {
inline void startTimerThreadOnce() { TimerEventManager::startThread(); }
}  // namespace zorvik

#endif  // ZORVIK_TESTS_SUPPORT_TIMERTHREAD_H_
