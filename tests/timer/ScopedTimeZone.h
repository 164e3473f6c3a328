// ScopedTimeZone: sets TZ for the lifetime of the object and restores the previous value.
// Not thread-safe (it changes the environment): use it while no other thread reads local time.
#ifndef ZORVIK_TESTS_TIMER_SCOPEDTIMEZONE_H_
#define ZORVIK_TESTS_TIMER_SCOPEDTIMEZONE_H_

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

namespace zorvik {

class ScopedTimeZone {
 public:
  explicit ScopedTimeZone(const std::string& zone) {
    if (const char* previous = std::getenv("TZ")) previous_ = previous;
    setenv("TZ", zone.c_str(), 1);
    tzset();
  }
  ~ScopedTimeZone() {
    if (previous_) {
      setenv("TZ", previous_->c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }
  ScopedTimeZone(const ScopedTimeZone&) = delete;
  ScopedTimeZone& operator=(const ScopedTimeZone&) = delete;

 private:
  std::optional<std::string> previous_;
};

}  // namespace zorvik

#endif  // ZORVIK_TESTS_TIMER_SCOPEDTIMEZONE_H_
