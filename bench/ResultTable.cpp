#include "ResultTable.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <sstream>

namespace zorvik {
namespace {

// The value after "key" and its colon on the first line of a /proc file that begins with key.
std::string procValue(const char* file, const std::string& key) {
  std::ifstream in(file);
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind(key, 0) != 0) continue;
    const size_t colon = line.find(':');
    if (colon == std::string::npos) continue;
    const size_t start = line.find_first_not_of(" \t", colon + 1);
    return start == std::string::npos ? "" : line.substr(start);
  }
  return "unknown";
}

// The 1, 5 and 15 minute load averages: how busy the machine was with other work.
std::string loadAverages() {
  std::ifstream in("/proc/loadavg");
  std::string one, five, fifteen;
  in >> one >> five >> fifteen;
  return one + ", " + five + ", " + fifteen;
}

std::string utcNow() {
  const std::time_t now = std::time(nullptr);
  struct tm utc;
  gmtime_r(&now, &utc);
  char text[32];
  std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M UTC", &utc);
  return text;
}

}  // namespace

void ResultTable::add(Row row) { rows_.push_back(std::move(row)); }

void ResultTable::note(std::string text) { notes_.push_back(std::move(text)); }

std::string ResultTable::number(double value) {
  char text[32];
  if (value != 0 && std::fabs(value) < 10) {
    std::snprintf(text, sizeof(text), "%.2f", value);
  } else if (std::fabs(value) < 1000) {
    std::snprintf(text, sizeof(text), "%.1f", value);
  } else {
    std::snprintf(text, sizeof(text), "%.0f", value);
  }
  return text;
}

std::string ResultTable::ratio(double value, double baseline) {
  if (baseline == 0) return value == 0 ? "=" : "n/a";
  char text[32];
  std::snprintf(text, sizeof(text), "%.2fx", value / baseline);
  return text;
}

std::string ResultTable::machine() {
  std::ostringstream text;
  text << "nproc " << sysconf(_SC_NPROCESSORS_ONLN) << ", "
       << procValue("/proc/cpuinfo", "model name") << ", " << procValue("/proc/meminfo", "MemTotal")
       << " memory";
  return text.str();
}

std::string ResultTable::table() const {
  std::ostringstream text;
  text << "| Figure | zorvik | Baseline | Ratio | Unit | Baseline is |\n"
       << "|---|---:|---:|---:|---|---|\n";
  for (const Row& row : rows_) {
    text << "| " << row.figure << " | " << number(row.value) << " | " << number(row.baseline)
         << " | " << ratio(row.value, row.baseline) << " | " << row.unit << " | "
         << row.baselineName << " |\n";
  }
  return text.str();
}

std::string ResultTable::report(const std::string& command) const {
  std::ostringstream text;
  text << "# Benchmark results\n\n"
       << "- Machine: " << machine() << "\n"
       << "- Load average (1, 5, 15 min) at the end of the run: " << loadAverages() << "\n"
       << "- Date: " << utcNow() << "\n"
       << "- Reproduce: `" << command << "`\n\n"
       << table();
  if (!notes_.empty()) {
    text << "\n";
    for (const std::string& line : notes_) text << "- " << line << "\n";
  }
  return text.str();
}

}  // namespace zorvik
