// RequestLoad: concurrent callers of the Zorvik service, each on its own connection with the
// framed transport and binary protocol the router's callers use, timing every call.
//
// Threading: run() starts one thread per caller and returns when all are done.
#ifndef ZORVIK_BENCH_REQUESTLOAD_H_
#define ZORVIK_BENCH_REQUESTLOAD_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "Samples.h"

namespace zorvik {

class RequestLoad {
 public:
  // Opens a connected socket to the service; -1 on failure. Called from the callers' threads.
  using Connector = std::function<int()>;
  // The request text of a caller's n-th call.
  using RequestText = std::function<std::string(int caller, uint64_t n)>;

  struct Plan {
    int callers = 1;
    // Measure for this long, or until `requests` calls were answered when it is not 0.
    std::chrono::milliseconds duration{0};
    uint64_t requests = 0;
    // Calls per caller before the measurement starts (connections and caches warm up).
    int warmUp = 20;
  };

  struct Result {
    uint64_t answered = 0;
    uint64_t failed = 0;
    double seconds = 0;
    Samples latencyUs;
    double throughput() const { return seconds > 0 ? static_cast<double>(answered) / seconds : 0; }
    // Adds another run's calls and time (rounds of one measurement).
    void merge(const Result& other);
  };

  static Result run(const Connector& connect, const Plan& plan, const RequestText& request);
  // One call on a fresh connection: the reply, or nothing when the service did not answer.
  static std::optional<std::string> once(const Connector& connect, const std::string& request);
};

}  // namespace zorvik

#endif  // ZORVIK_BENCH_REQUESTLOAD_H_
