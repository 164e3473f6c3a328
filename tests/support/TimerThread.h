// Starts the process-wide timer thread once for a test program (it runs until the program ends).
#ifndef ZORVIK_TESTS_SUPPORT_TIMERTHREAD_H_
#define ZORVIK_TESTS_SUPPORT_TIMERTHREAD_H_

namespace zorvik {

void startTimerThreadOnce();

}  // namespace zorvik

#endif  // ZORVIK_TESTS_SUPPORT_TIMERTHREAD_H_
