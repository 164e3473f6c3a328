// Config: reads and rewrites a "key = value" configuration file.
#include "store/Config.h"

#include <sstream>

#include "server/Log.h"
#include "server/Text.h"
#include "server/TextFile.h"

namespace zorvik {
namespace {

const char kCommentMarker[] = "//";
const char kHeaderMarker[] = "Config";
const char kSeparator = '=';
const char kWrittenSeparator[] = " = ";
const char kWhiteSpace[] = " \t\r\n\v\f";

std::string trim(const std::string& text) {
  const size_t first = text.find_first_not_of(kWhiteSpace);
  if (first == std::string::npos) return std::string();
  const size_t last = text.find_last_not_of(kWhiteSpace);
  return text.substr(first, last - first + 1);
}

}  // namespace

Config::Config(std::string path, bool readOnly) : path_(std::move(path)), readOnly_(readOnly) {
  read();
}

std::string Config::getValue(const std::string& key) const {
  const auto found = entries_.find(key);
  return found == entries_.end() ? std::string() : found->second;
}

void Config::setValue(const std::string& key, const std::string& value) {
  if (readOnly_) return;
  entries_[key] = value;
  write();
}

void Config::read() {
  const std::optional<std::string> text = TextFile::read(path_);
  if (!text) {
    ZLOG(kLogError) << "Unable to open config file: " << path_;
    return;
  }
  std::istringstream lines(*text);
  std::string line;
  while (std::getline(lines, line)) parseLine(line);
}

// A later line with the same key replaces the earlier value.
void Config::parseLine(const std::string& line) {
  if (line.empty() || startsWith(line, kCommentMarker) || startsWith(line, kHeaderMarker)) return;
  const size_t separator = line.find(kSeparator);
  if (separator == std::string::npos) return;
  entries_[trim(line.substr(0, separator))] = trim(line.substr(separator + 1));
}

void Config::write() const {
  std::string text;
  for (const auto& [key, value] : entries_) text += key + kWrittenSeparator + value + '\n';
  if (!TextFile::write(path_, text)) {
    // The missing blank before "for write" is how this line has always read.
    ZLOG(kLogError) << "Unable to open config file: " << path_ << "for write";
  }
}

}  // namespace zorvik
