// AlarmObject: parses an alarm text and computes the time to its first and next firing.
#include "timer/AlarmObject.h"

#include <json-c/json.h>
#include <sys/time.h>

#include <algorithm>
#include <boost/date_time/posix_time/posix_time.hpp>
#include <boost/lexical_cast/bad_lexical_cast.hpp>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <stdexcept>

#include "server/Json.h"
#include "server/Log.h"

namespace zorvik {
namespace {

namespace pt = boost::posix_time;
namespace gr = boost::gregorian;

const char kTimeKey[] = "time";
const char kRepeatKey[] = "repeat";
const char kUtcTimeKey[] = "utc_time";
const char kEnabledKey[] = "enabled";
const char kRepeatSeparator = ',';
constexpr int64_t kNoUtcTime = -1;
constexpr int64_t kNoAlarm = -1;
constexpr int kDaysPerWeek = 7;
// Both 0 and 7 name Sunday; 0 is what the alarm keeps.
constexpr int32_t kSundayAlias = 7;
constexpr int32_t kSunday = 0;
constexpr unsigned kSaturday = 6;
// The years the calendar library can hold.
constexpr int kFirstCalendarYear = 1400;
constexpr int kLastCalendarYear = 9999;
constexpr int kTmYearBase = 1900;
// The duration reader splits a time text at these characters into hours, minutes, seconds and
// fraction; the minutes and seconds are read as 16-bit numbers.
const char kTimeDelimiters[] = "-:,.";
constexpr size_t kMinutesField = 1;
constexpr size_t kSecondsField = 2;

// Splits at every separator, keeping empty pieces.
std::vector<std::string> splitKeepingEmpty(const std::string& text, char separator) {
  std::vector<std::string> pieces;
  size_t start = 0;
  for (;;) {
    const size_t end = text.find(separator, start);
    pieces.push_back(text.substr(start, end - start));
    if (end == std::string::npos) return pieces;
    start = end + 1;
  }
}

// The weekday a repeat piece names, or nothing when it names none. Empty and non-numeric pieces
// read as 0, Sunday.
std::optional<int32_t> weekdayOf(const std::string& piece) {
  int32_t day = std::atoi(piece.c_str());
  if (day == kSundayAlias) day = kSunday;
  if (static_cast<unsigned>(day) > kSaturday) return std::nullopt;
  return day;
}

// The local time of a calendar breakdown plus some microseconds. A year outside the calendar
// is refused rather than cut to 16 bits, which would move a far instant into this century.
pt::ptime ptimeOf(const struct tm& local, int64_t microseconds) {
  const int year = local.tm_year + kTmYearBase;
  if (year < kFirstCalendarYear || year > kLastCalendarYear) {
    throw std::out_of_range("alarm instant out of range");
  }
  const gr::date day(static_cast<unsigned short>(year),
                     static_cast<unsigned short>(local.tm_mon + 1),
                     static_cast<unsigned short>(local.tm_mday));
  return pt::ptime(day, pt::hours(local.tm_hour) + pt::minutes(local.tm_min) +
                            pt::seconds(local.tm_sec) + pt::microseconds(microseconds));
}

// The local time of `seconds` since the epoch.
pt::ptime localTimeOf(time_t seconds, int64_t microseconds) {
  struct tm local;
  if (localtime_r(&seconds, &local) == nullptr) {
    throw std::out_of_range("alarm instant out of range");
  }
  return ptimeOf(local, microseconds);
}

// A number as the duration reader's 16-bit conversion accepts it: a sign, then digits only.
bool isPlainNumber(const std::string& field) {
  const size_t sign = !field.empty() && (field[0] == '+' || field[0] == '-') ? 1 : 0;
  return field.size() > sign && field.find_first_not_of("0123456789", sign) == std::string::npos;
}

// The time of day of a weekly alarm, read with the library's delimited-duration reader. That
// reader overflows a signed integer inside its 16-bit conversion when the minutes or seconds
// hold other characters than digits; it refuses such a text in the end anyway, so it is refused
// here first, with the exception the reader would throw.
pt::time_duration timeOfDayOf(const std::string& text) {
  size_t field = 0;
  for (size_t start = 0; start < text.size();) {
    const size_t end = std::min(text.find_first_of(kTimeDelimiters, start), text.size());
    if (end > start) {
      const bool sixteenBit = field == kMinutesField || field == kSecondsField;
      if (sixteenBit && !isPlainNumber(text.substr(start, end - start))) {
        throw boost::bad_lexical_cast();
      }
      ++field;
    }
    start = end + 1;
  }
  return pt::duration_from_string(text);
}

}  // namespace

bool AlarmObject::clearAlarm() {
  alarmText_.clear();
  dirty_ = true;
  return true;
}

void AlarmObject::setAlarmText(const std::string& text) {
  alarmText_ = text;
  dirty_ = true;
}

void AlarmObject::parseIfDirty() {
  if (!dirty_) return;
  utcTime_ = kNoUtcTime;
  time_.clear();
  enabled_ = true;
  repeat_.clear();
  dirty_ = false;
  if (alarmText_.empty()) return;

  const Json::Document root = Json::parse(alarmText_);
  if (!root) {
    ZLOG(kLogInfo) << "Alarm timer not json format";
    return;
  }
  time_ = Json::memberText(root.get(), kTimeKey);
  ZLOG(kLogInfo) << "Alarm timer time: " << time_;

  if (json_object* value = Json::member(root.get(), kRepeatKey)) {
    const std::string repeat = Json::text(value);
    if (!repeat.empty()) {
      for (const std::string& piece : splitKeepingEmpty(repeat, kRepeatSeparator)) {
        if (const std::optional<int32_t> day = weekdayOf(piece)) repeat_.push_back(*day);
      }
    }
    ZLOG(kLogInfo) << "Alarm timer repeat: " << repeat;
  }

  if (json_object* value = Json::member(root.get(), kUtcTimeKey)) {
    utcTime_ = json_object_get_int64(value);
  }
  ZLOG(kLogInfo) << "Alarm timer utc_time: " << utcTime_;

  if (json_object* value = Json::member(root.get(), kEnabledKey)) {
    enabled_ = json_object_get_boolean(value) != 0;
  }
  ZLOG(kLogInfo) << "Alarm timer enabled: " << (enabled_ ? 1 : 0);
}

bool AlarmObject::isEnabled() {
  parseIfDirty();
  return enabled_;
}

bool AlarmObject::isOnce() {
  if (alarmText_.empty()) return false;
  parseIfDirty();
  return utcTime_ > 0;
}

bool AlarmObject::isPeriod() {
  if (alarmText_.empty()) return false;
  parseIfDirty();
  return !time_.empty() && !repeat_.empty();
}

bool AlarmObject::isValid() {
  if (alarmText_.empty()) return false;
  return isOnce() || isPeriod();
}

int64_t AlarmObject::utcTime() {
  parseIfDirty();
  return utcTime_;
}

const std::string& AlarmObject::time() {
  parseIfDirty();
  return time_;
}

const std::vector<int32_t>& AlarmObject::repeat() {
  parseIfDirty();
  return repeat_;
}

pt::ptime AlarmObject::localNow() {
  struct timeval now;
  gettimeofday(&now, nullptr);
  return localTimeOf(now.tv_sec, now.tv_usec);
}

int64_t AlarmObject::getFirstAlarm() { return getFirstAlarm(localNow()); }

int64_t AlarmObject::getFirstAlarm(const pt::ptime& now) {
  ZLOG(kLogInfo) << "get first alarm ";
  if (!isEnabled()) return kNoAlarm;
  if (!isValid()) return kNoAlarm;
  if (isOnce()) {
    // The millisecond remainder of the instant is dropped.
    const std::chrono::seconds instant =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::milliseconds(utcTime_));
    const pt::ptime next = localTimeOf(static_cast<time_t>(instant.count()), 0);
    const pt::time_duration diff = next - now;
    const int64_t result = diff.is_negative() ? kNoAlarm : diff.total_milliseconds();
    ZLOG(kLogInfo) << "once alarm, now: " << now;
    ZLOG(kLogInfo) << "once alarm, next: " << next;
    ZLOG(kLogInfo) << "once alarm, " << diff << ", milliseconds=" << result;
    return result;
  }

  // An alarm due today counts when its time of day has not passed yet; exactly now is due now.
  const bool passedToday = timeOfDayOf(time_) < now.time_of_day();
  return weeklyAlarm(now, passedToday ? kDaysPerWeek : 0, "period alarm next: ");
}

int64_t AlarmObject::getNextAlarm(const pt::ptime& now) {
  ZLOG(kLogInfo) << "get next alarm ";
  if (!isEnabled()) return kNoAlarm;
  if (!isPeriod()) return kNoAlarm;
  // Right after a firing today's weekday counts as a week away, so no alarm fires twice a day.
  return weeklyAlarm(now, kDaysPerWeek, "period alarm, next: ");
}

int64_t AlarmObject::weeklyAlarm(const pt::ptime& now, int todayOffset, const char* nextLabel) {
  const int weekday = now.date().day_of_week().as_number();
  int minDuration = kDaysPerWeek;
  for (const int32_t day : repeat_) {
    const int offset = (day - weekday + kDaysPerWeek) % kDaysPerWeek;
    minDuration = std::min(minDuration, offset == 0 ? todayOffset : offset);
  }
  ZLOG(kLogInfo) << "period alarm, minDuration=" << minDuration;
  // Today at 00:00, minDuration days later, at the alarm's time of day.
  const pt::ptime next = pt::ptime(now.date()) + gr::days(minDuration) + timeOfDayOf(time_);
  const pt::time_duration diff = next - now;
  const int64_t result = diff.total_milliseconds();
  ZLOG(kLogInfo) << "period alarm, now: " << now;
  ZLOG(kLogInfo) << nextLabel << next;
  ZLOG(kLogInfo) << "period alarm, " << diff << ", milliseconds=" << result;
  return result;
}

}  // namespace zorvik
