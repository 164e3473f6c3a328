// FuzzEnvironment: what the fuzz targets share: the input's lines and the checks. Each target
// includes it once; its LLVMFuzzerInitialize quiets the process before any other thread exists
// (log lines go nowhere, shell commands succeed with no output and never run) and for good, as
// the timer thread may still log and run commands at exit.
#ifndef ZORVIK_TESTS_FUZZ_FUZZENVIRONMENT_H_
#define ZORVIK_TESTS_FUZZ_FUZZENVIRONMENT_H_

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "server/Json.h"
#include "server/Log.h"
#include "server/Shell.h"

namespace zorvik::fuzz {

// The input's lines, padded with empty ones to at least `count` lines.
inline std::vector<std::string> lines(const uint8_t* data, size_t size, size_t count) {
  std::istringstream input(std::string(reinterpret_cast<const char*>(data), size));
  std::vector<std::string> lines;
  for (std::string line; std::getline(input, line);) lines.push_back(line);
  if (lines.size() < count) lines.resize(count);
  return lines;
}

inline int64_t number(const std::string& text) { return std::strtoll(text.c_str(), nullptr, 10); }

// A broken invariant aborts, which libFuzzer reports as a crash, with the input.
inline void require(bool condition) {
  if (!condition) std::abort();
}

// The text parsed: a JSON object, with an integer member `intKey` when one is named.
inline Json::Document requireObject(const std::string& text, const char* intKey = nullptr) {
  Json::Document parsed = Json::parse(text);
  require(json_object_is_type(parsed.get(), json_type_object));
  if (intKey) require(json_object_is_type(Json::member(parsed.get(), intKey), json_type_int));
  return parsed;
}

// True when a JSON text may name a TV action, which holds its thread up to a minute while the
// set wakes. json-c's own form undoes escapes; its strings end at a NUL, so a prefix counts.
inline bool namesTv(const std::string& text) {
  const Json::Document parsed = Json::parse(text);
  const std::string canonical = parsed ? json_object_to_json_string(parsed.get()) : "";
  return canonical.find("\"tevra") != std::string::npos ||
         canonical.find("\"tarwen") != std::string::npos;
}

// Runs `work`, then waits (at most a second) until the threads it started are gone: the leak
// check after an input must not catch a timed router shutdown's detached thread half-way.
template <typename Work>
void runAndSettle(Work work) {
  const auto threads = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
  };
  const auto before = threads();
  work();
  for (int ms = 0; threads() > before && ms < 1000; ++ms)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

}  // namespace zorvik::fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  struct SilentShell : zorvik::Shell::Backend {
    int system(const std::string&) override { return 0; }
    std::optional<std::string> capture(const std::string&) override { return std::string(); }
  };
  zorvik::setLogSink([](int, const std::string&) {});
  zorvik::Shell::setBackend(std::make_shared<SilentShell>());
  return 0;
}

#endif  // ZORVIK_TESTS_FUZZ_FUZZENVIRONMENT_H_
