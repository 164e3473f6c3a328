// Log: the daemon's one diagnostic channel.
//
// A LogMessage collects one line, prefixes it with "[ZORVIK <LEVEL> <file>:<line>]" and hands
// the finished text (line feed included) to the process-wide sink when it goes out of scope.
// The sink is syslog by default; tests replace it with setLogSink().
//
// Threading: LogMessage is a local object of the thread that logs, and each line reaches the
// sink whole, so lines of different threads never mix. The sink is called under one internal
// mutex; a sink must not log itself. openLog() runs once at start-up before other threads exist.
#ifndef ZORVIK_SERVER_LOG_H_
#define ZORVIK_SERVER_LOG_H_

#include <functional>
#include <sstream>
#include <string>

namespace zorvik {

// Levels as callers pass them. Negative values log as INFO, values above 2 as ERROR.
enum LogLevel : int { kLogInfo = 0, kLogDebug = 1, kLogError = 2 };

// Receives the syslog priority and the finished line.
using LogSink = std::function<void(int priority, const std::string& text)>;

// Opens the system log under the identity "zorvik"; a second call does nothing.
void openLog();
// Closes the system log; lines logged afterwards are dropped by the syslog sink.
void closeLog();
// The default sink: syslog(priority | LOG_USER, "%s", text) while the log is open.
void syslogSink(int priority, const std::string& text);
// Replaces the process-wide sink and returns the previous one; an empty sink restores syslog.
LogSink setLogSink(LogSink sink);

class LogMessage {
 public:
  LogMessage(const char* file, int line, int level);
  LogMessage(const LogMessage&) = delete;
  LogMessage& operator=(const LogMessage&) = delete;
  ~LogMessage();

  std::ostream& stream() { return stream_; }

  // The syslog priority (6, 7 or 3) and the word ("INFO", "DEBUG", "ERROR") of a level.
  static int priorityOf(int level);
  static const char* wordOf(int level);

 private:
  int priority_;
  std::ostringstream stream_;
};

}  // namespace zorvik

// Logs one line naming the calling source file and line: ZLOG(kLogInfo) << "text";
#define ZLOG(level) ::zorvik::LogMessage(__FILE_NAME__, __LINE__, (level)).stream()
// The same for code that logs under the name of another module it belongs to.
#define ZLOG_AS(module, level) ::zorvik::LogMessage((module), __LINE__, (level)).stream()

#endif  // ZORVIK_SERVER_LOG_H_
