// Fuzzes the configuration file reader: the input is the file's content, and its last line,
// read as "key=value", is set on a writable copy. Both must survive any bytes; a plain entry
// that was set must read back unchanged, and a read-only file must never change.
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "FuzzEnvironment.h"
#include "store/Config.h"

namespace zorvik {
namespace {

// The white space that the reader trims from keys and values.
const char kTrimmed[] = " \t\r\n\v\f";

std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void spill(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

bool isTrimmed(const std::string& text) {
  return text.empty() || (std::string(kTrimmed).find(text.front()) == std::string::npos &&
                          std::string(kTrimmed).find(text.back()) == std::string::npos);
}

// A key and value that the file syntax can carry: written as "key = value", read back the same.
bool survivesRewrite(const std::string& key, const std::string& value) {
  const bool keyIsEntry =
      key.find('=') == std::string::npos && key.rfind("//", 0) != 0 && key.rfind("Config", 0) != 0;
  const bool oneLine = key.find('\n') == std::string::npos && value.find('\n') == std::string::npos;
  return keyIsEntry && oneLine && isTrimmed(key) && isTrimmed(value);
}

void checkReadOnlyStaysUntouched(const std::string& path, const std::string& content,
                                 const std::string& key) {
  Config readOnly(path, true);
  for (const std::string& line : FuzzEnvironment::splitLines(
           reinterpret_cast<const uint8_t*>(content.data()), content.size())) {
    readOnly.getValue(line.substr(0, line.find('=')));
  }
  readOnly.setValue(key, "changed");
  if (slurp(path) != content) std::abort();
}

void checkSetValueReadsBack(const std::string& path, const std::string& key,
                            const std::string& value) {
  Config writable(path, false);
  writable.setValue(key, value);
  if (writable.getValue(key) != value) std::abort();
  if (survivesRewrite(key, value) && Config(path, true).getValue(key) != value) std::abort();
}

}  // namespace
}  // namespace zorvik

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using zorvik::FuzzEnvironment;
  const FuzzEnvironment& environment = FuzzEnvironment::get();
  const std::string content(reinterpret_cast<const char*>(data), size);
  const std::vector<std::string> lines = FuzzEnvironment::splitLines(data, size);
  const std::string& last = lines.back();
  const size_t separator = last.find('=');
  const std::string key = last.substr(0, separator);
  const std::string value = separator == std::string::npos ? "" : last.substr(separator + 1);

  const std::string readPath = environment.folder() + "read.conf";
  zorvik::spill(readPath, content);
  zorvik::checkReadOnlyStaysUntouched(readPath, content, key);

  const std::string writePath = environment.folder() + "write.conf";
  zorvik::spill(writePath, content);
  zorvik::checkSetValueReadsBack(writePath, key, value);
  return 0;
}
