// Fuzzes the alarm text and its arithmetic. Input lines: the alarm JSON text; the local "now"
// in seconds since 1970; its microseconds; a time zone chosen by the first byte. The duration
// reader may refuse a time text with an exception (callers catch std::exception), anything
// else must hold: results are -1 or within the week the alarm describes, and in UTC a one-time
// alarm is exactly as far away as its instant.
#include <boost/date_time/posix_time/posix_time.hpp>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <string>

#include "FuzzEnvironment.h"
#include "timer/AlarmObject.h"

namespace zorvik {
namespace {

namespace pt = boost::posix_time;
namespace gr = boost::gregorian;

// Zones with and without daylight saving, a half-hour one and one beyond twelve hours.
const char* const kZones[] = {"UTC", "Europe/Berlin", "America/New_York", "Australia/Adelaide",
                              "Pacific/Chatham"};
constexpr size_t kZoneCount = sizeof(kZones) / sizeof(kZones[0]);

// The calendar covers 1400-01-01 to 9999-12-31; "now" is folded into that span.
constexpr int64_t kFirstSecond = -17987443200LL;
constexpr int64_t kSpanSeconds = 253402300800LL - kFirstSecond;
constexpr int64_t kMicrosPerSecond = 1000000;
constexpr int64_t kMillisPerDay = 24LL * 3600 * 1000;
constexpr int64_t kNoAlarm = -1;

class FuzzAlarm : public AlarmObject {
 public:
  void onAlarm() override {}
};

int64_t numberOf(const std::string& text) { return std::strtoll(text.c_str(), nullptr, 10); }

pt::ptime epoch() { return pt::ptime(gr::date(1970, 1, 1)); }

pt::ptime localNowOf(const std::string& secondsText, const std::string& microsText) {
  int64_t seconds = numberOf(secondsText) % kSpanSeconds;
  if (seconds < kFirstSecond) seconds += kSpanSeconds;
  if (seconds >= kFirstSecond + kSpanSeconds) seconds -= kSpanSeconds;
  const int64_t micros = numberOf(microsText) % kMicrosPerSecond;
  return epoch() + pt::seconds(static_cast<long>(seconds)) + pt::microseconds(micros);
}

void useZone(const std::string& choice) {
  const char* zone = kZones[choice.empty() ? 0 : static_cast<uint8_t>(choice[0]) % kZoneCount];
  const char* current = std::getenv("TZ");
  if (current != nullptr && std::string(current) == zone) return;
  setenv("TZ", zone, 1);
  tzset();
}

bool isUtc() { return std::string(std::getenv("TZ")) == kZones[0]; }

// The alarm's time of day when it is an ordinary one (0:00 to 23:59:59.999999).
bool ordinaryTimeOfDay(const std::string& text, pt::time_duration& timeOfDay) {
  try {
    timeOfDay = pt::duration_from_string(text);
  } catch (const std::exception&) {
    return false;
  }
  return !timeOfDay.is_special() && !timeOfDay.is_negative() && timeOfDay < pt::hours(24);
}

void require(bool condition) {
  if (!condition) std::abort();
}

void checkFirstAlarm(FuzzAlarm& alarm, const pt::ptime& now) {
  int64_t first;
  try {
    first = alarm.getFirstAlarm(now);
  } catch (const std::exception&) {
    return;
  }
  if (!alarm.isEnabled() || !alarm.isValid()) return require(first == kNoAlarm);
  if (alarm.isOnce()) {
    require(first >= kNoAlarm);
    if (!isUtc()) return;
    // An instant beyond the calendar has no distance: it must have been refused.
    const int64_t instantSeconds = alarm.utcTime() / 1000;
    require(instantSeconds < kFirstSecond + kSpanSeconds);
    // In UTC the local calendar is the epoch's: the distance is plain arithmetic.
    const int64_t instant = instantSeconds * kMicrosPerSecond;
    const int64_t nowMicros = (now - epoch()).total_microseconds();
    const int64_t expected = instant >= nowMicros ? (instant - nowMicros) / 1000 : kNoAlarm;
    return require(first == expected);
  }
  pt::time_duration timeOfDay;
  if (ordinaryTimeOfDay(alarm.time(), timeOfDay)) {
    require(first >= 0 && first < 8 * kMillisPerDay);
  }
}

void checkNextAlarm(FuzzAlarm& alarm, const pt::ptime& now) {
  int64_t next;
  try {
    next = alarm.getNextAlarm(now);
  } catch (const std::exception&) {
    return;
  }
  if (!alarm.isEnabled() || !alarm.isPeriod()) return require(next == kNoAlarm);
  pt::time_duration timeOfDay;
  // The firing is always later than now, but may be less than a millisecond away.
  if (ordinaryTimeOfDay(alarm.time(), timeOfDay)) require(next >= 0 && next < 8 * kMillisPerDay);
}

void checkParts(FuzzAlarm& alarm) {
  for (int32_t day : alarm.repeat()) require(day >= 0 && day <= 6);
  const bool valid = !alarm.alarmText().empty() && (alarm.isOnce() || alarm.isPeriod());
  require(alarm.isValid() == valid);
}

}  // namespace
}  // namespace zorvik

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using zorvik::FuzzEnvironment;
  FuzzEnvironment::get();
  const std::vector<std::string> fields = FuzzEnvironment::splitLines(data, size);
  zorvik::useZone(FuzzEnvironment::field(fields, 3));
  const auto now =
      zorvik::localNowOf(FuzzEnvironment::field(fields, 1), FuzzEnvironment::field(fields, 2));

  zorvik::FuzzAlarm alarm;
  alarm.setAlarmText(fields[0]);
  zorvik::checkParts(alarm);
  zorvik::checkFirstAlarm(alarm, now);
  zorvik::checkNextAlarm(alarm, now);
  alarm.clearAlarm();
  zorvik::require(!alarm.isValid() && alarm.getFirstAlarm(now) == -1);
  return 0;
}
