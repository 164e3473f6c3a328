// Fuzzes alarm texts and their arithmetic. Input lines: the alarm JSON; the local "now" in seconds
// since 1970; its microseconds; a time zone chosen by the first byte. Firings are -1 or within
// the week the alarm describes; in UTC a one-time alarm is exactly as far away as its instant.
#include <boost/date_time/posix_time/posix_time.hpp>
#include <ctime>
#include <iterator>

#include "FuzzEnvironment.h"
#include "timer/AlarmObject.h"

namespace zorvik {
namespace {

namespace pt = boost::posix_time;

// Zones with and without daylight saving, a half-hour one and one beyond twelve hours.
const char* const kZones[] = {"UTC", "Europe/Berlin", "America/New_York", "Australia/Adelaide",
                              "Pacific/Chatham"};
// The calendar covers 1400-01-01 to 9999-12-31; "now" is folded into that span.
constexpr int64_t kFirstSecond = -17987443200LL;
constexpr int64_t kSpanSeconds = 253402300800LL - kFirstSecond;
constexpr int64_t kEightDaysMs = 8 * 24 * 3600 * 1000LL;
constexpr int64_t kNoAlarm = -1;
const pt::ptime kEpoch(boost::gregorian::date(1970, 1, 1));

struct FuzzAlarm : AlarmObject {
  void onAlarm() override {}
};

// A weekly firing at an ordinary time of day (0:00 to 23:59:59.999999) is later than now (maybe
// by less than a millisecond) and within eight days.
void requireWithinWeek(FuzzAlarm& alarm, int64_t firing) {
  const pt::time_duration time = pt::duration_from_string(alarm.time());
  if (!time.is_special() && !time.is_negative() && time < pt::hours(24))
    fuzz::require(firing >= 0 && firing < kEightDaysMs);
}

// In UTC the local calendar is the epoch's: a one-time alarm's distance is plain arithmetic. An
// instant beyond the calendar has no distance: it must have been refused.
void checkFirst(FuzzAlarm& alarm, const pt::ptime& now, bool utc) {
  const int64_t first = alarm.getFirstAlarm(now);
  if (!alarm.isEnabled() || !alarm.isValid()) return fuzz::require(first == kNoAlarm);
  if (!alarm.isOnce()) return requireWithinWeek(alarm, first);
  fuzz::require(first >= kNoAlarm);
  if (!utc) return;
  const int64_t instantSeconds = alarm.utcTime() / 1000;
  fuzz::require(instantSeconds < kFirstSecond + kSpanSeconds);
  const int64_t later = instantSeconds * 1000000 - (now - kEpoch).total_microseconds();
  fuzz::require(first == (later >= 0 ? later / 1000 : kNoAlarm));
}

void checkNext(FuzzAlarm& alarm, const pt::ptime& now, bool) {
  const int64_t next = alarm.getNextAlarm(now);
  if (!alarm.isEnabled() || !alarm.isPeriod()) return fuzz::require(next == kNoAlarm);
  requireWithinWeek(alarm, next);
}

}  // namespace
}  // namespace zorvik

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace zorvik;
  const std::vector<std::string> lines = fuzz::lines(data, size, 4);
  const size_t zone = static_cast<uint8_t>(lines[3][0]) % std::size(kZones);  // "" picks UTC
  setenv("TZ", kZones[zone], 1);
  tzset();
  const int64_t seconds =
      (fuzz::number(lines[1]) % kSpanSeconds - kFirstSecond + kSpanSeconds) % kSpanSeconds +
      kFirstSecond;
  const pt::ptime now =
      kEpoch + pt::seconds(seconds) + pt::microseconds(fuzz::number(lines[2]) % 1000000);

  FuzzAlarm alarm;
  alarm.setAlarmText(lines[0]);
  for (int32_t day : alarm.repeat()) fuzz::require(day >= 0 && day <= 6);
  // The duration reader may refuse a time text with an exception, which callers catch.
  for (auto check : {checkFirst, checkNext}) {
    try {
      check(alarm, now, zone == 0);
    } catch (const std::exception&) {
    }
  }
  return 0;
}
