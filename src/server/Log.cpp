// Log: formats each line with the daemon's prefix and hands it to syslog or a test sink.
#include "server/Log.h"

#include <syslog.h>

#include "server/Mutex.h"

namespace zorvik {
namespace {

const char kLogIdentity[] = "zorvik";
const char kLogTag[] = "[ZORVIK ";

// Null while the log is closed. Written only at start-up, before other threads exist.
const char* logIdentity = nullptr;

Mutex sinkMutex;
LogSink currentSink GUARDED_BY(sinkMutex);  // empty means syslog

}  // namespace

void openLog() {
  if (logIdentity != nullptr) return;
  logIdentity = kLogIdentity;
  openlog(kLogIdentity, LOG_PID | LOG_CONS | LOG_NDELAY, LOG_USER);
}

void closeLog() {
  if (logIdentity == nullptr) return;
  closelog();
  logIdentity = nullptr;
}

void syslogSink(int priority, const std::string& text) {
  if (logIdentity == nullptr) return;
  syslog(priority | LOG_USER, "%s", text.c_str());
}

LogSink setLogSink(LogSink sink) {
  MutexLock lock(sinkMutex);
  LogSink previous = std::move(currentSink);
  currentSink = std::move(sink);
  return previous;
}

int LogMessage::priorityOf(int level) {
  if (level <= kLogInfo) return LOG_INFO;
  if (level == kLogDebug) return LOG_DEBUG;
  return LOG_ERR;
}

const char* LogMessage::wordOf(int level) {
  if (level <= kLogInfo) return "INFO";
  if (level == kLogDebug) return "DEBUG";
  return "ERROR";
}

LogMessage::LogMessage(const char* file, int line, int level) : priority_(priorityOf(level)) {
  stream_ << kLogTag << wordOf(level) << ' ' << file << ':' << line << ']';
}

LogMessage::~LogMessage() {
  stream_ << '\n';
  stream_.flush();
  const std::string text = stream_.str();
  MutexLock lock(sinkMutex);
  if (currentSink) {
    currentSink(priority_, text);
  } else {
    syslogSink(priority_, text);
  }
}

}  // namespace zorvik
