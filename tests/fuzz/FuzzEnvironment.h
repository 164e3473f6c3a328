// FuzzEnvironment: what every fuzz target of the daemon needs before its first input.
//
// Log lines go nowhere (syslog to the console would cost a millisecond a line), and every shell
// command is swallowed with success and empty output: scene runs and store start-up name router
// programs, and a fuzzer must never run one. The scratch folder lives on a RAM-backed file
// system when there is one, so that SQLite's journal syncs cost nothing, and is removed at exit.
//
// Threading: get() is first called from the fuzzer's own thread before any other thread exists;
// afterwards the object is only read. It is created once and never destroyed, so the timer
// thread may still log and run commands while the process exits.
#ifndef ZORVIK_TESTS_FUZZ_FUZZENVIRONMENT_H_
#define ZORVIK_TESTS_FUZZ_FUZZENVIRONMENT_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace zorvik {

class FuzzEnvironment {
 public:
  // Quiets the log and the shell on the first call.
  static FuzzEnvironment& get();

  // A private folder for this process, with a trailing "/".
  const std::string& folder() const { return folder_; }

  // The input cut at every line feed; a trailing line feed yields a last empty field.
  static std::vector<std::string> splitLines(const uint8_t* data, size_t size);
  // Field `index`, or an empty text when the input has fewer fields.
  static const std::string& field(const std::vector<std::string>& fields, size_t index);

  // The number of threads of this process.
  static int threadCount();
  // Waits (at most a second) until the process has no more than `count` threads. A timed
  // router shutdown runs on a detached thread of its own; the leak check after an input must
  // not catch that thread half-way, holding its command line where the check cannot see it.
  static void waitForThreads(int count);

 private:
  FuzzEnvironment();

  std::string folder_;
};

}  // namespace zorvik

#endif  // ZORVIK_TESTS_FUZZ_FUZZENVIRONMENT_H_
