// AlarmObject: one alarm, either once at an instant or weekly on some weekdays at a time of day.
//
// The alarm is a small JSON text ({"time":"07:30","repeat":"1,3,5","utc_time":ms,"enabled":b}),
// parsed lazily by the accessors whenever it changed. getFirstAlarm() and getNextAlarm() give
// the milliseconds from the local time `now` (the alarm manager's clock) until the next firing;
// getFirstAlarm() without `now` reads the real clock.
//
// Threading: no lock of its own; callers serialise access to one alarm.
#ifndef ZORVIK_TIMER_ALARMOBJECT_H_
#define ZORVIK_TIMER_ALARMOBJECT_H_

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <cstdint>
#include <string>
#include <vector>

namespace zorvik {

class AlarmObject {
 public:
  AlarmObject() = default;
  virtual ~AlarmObject() = default;

  // Forgets the alarm (empty text). Returns true.
  virtual bool clearAlarm();
  // The alarm is due; called by the alarm manager on the timer thread.
  virtual void onAlarm() = 0;

  bool isEnabled();
  bool isOnce();
  bool isPeriod();
  bool isValid();

  // Milliseconds from now to the first firing, or -1.
  int64_t getFirstAlarm();
  int64_t getFirstAlarm(const boost::posix_time::ptime& localNow);
  // Milliseconds from now to the next weekly firing after one has just happened, or -1.
  int64_t getNextAlarm(const boost::posix_time::ptime& localNow);

  // The parsed parts (each parses first when the text changed).
  int64_t utcTime();                     // instant of a once alarm in ms since the epoch, or -1
  const std::string& time();             // time of day of a weekly alarm as written
  const std::vector<int32_t>& repeat();  // weekdays 0..6 of a weekly alarm

  const std::string& alarmText() const { return alarmText_; }
  // Replaces the text; the next accessor re-reads it.
  void setAlarmText(const std::string& text);

  // The local wall-clock time now, to the microsecond.
  static boost::posix_time::ptime localNow();

 private:
  void parseIfDirty();
  // Milliseconds from `now` to the nearest weekday of the alarm at its time of day, today counting
  // as `todayOffset` days away (0 or 7); the firing is logged after `nextLabel`.
  int64_t weeklyAlarm(const boost::posix_time::ptime& now, int todayOffset, const char* nextLabel);

  int64_t utcTime_ = -1;
  std::string alarmText_;
  std::vector<int32_t> repeat_;
  std::string time_;
  bool dirty_ = false;
  bool enabled_ = true;
};

}  // namespace zorvik

#endif  // ZORVIK_TIMER_ALARMOBJECT_H_
