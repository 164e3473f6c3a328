#include "RequestLoad.h"

#include <thrift/Thrift.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "ServiceConnection.h"

namespace zorvik {
namespace {

using apache::thrift::TException;
using Clock = std::chrono::steady_clock;

// One caller's connection (a reply slower than its timeout counts as a failed call); null when
// the socket could not be opened.
std::unique_ptr<ServiceConnection> clientOn(int socket) {
  return socket < 0 ? nullptr : std::make_unique<ServiceConnection>(socket);
}

double microsecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

}  // namespace

void RequestLoad::Result::merge(const Result& other) {
  answered += other.answered;
  failed += other.failed;
  seconds += other.seconds;
  latencyUs.merge(other.latencyUs);
}

RequestLoad::Result RequestLoad::run(const Connector& connect, const Plan& plan,
                                     const RequestText& request) {
  std::atomic<int> ready{0};
  std::atomic<bool> go{false};
  std::atomic<uint64_t> started{0};
  Clock::time_point deadline;
  std::mutex resultMutex;
  Result result;  // guarded by resultMutex while the callers run

  auto caller = [&](int index) {
    std::unique_ptr<ServiceConnection> client = clientOn(connect());
    Samples mine;
    uint64_t failed = client ? 0 : 1;
    uint64_t n = 0;
    try {
      for (; client && n < static_cast<uint64_t>(plan.warmUp); ++n)
        client->request(request(index, n));
    } catch (const TException&) {
      ++failed;
      client.reset();
    }
    ready.fetch_add(1);
    while (!go.load()) std::this_thread::yield();
    while (client) {
      if (plan.requests != 0 ? started.fetch_add(1) >= plan.requests : Clock::now() >= deadline) {
        break;
      }
      const Clock::time_point sent = Clock::now();
      try {
        client->request(request(index, n++));
        mine.add(microsecondsSince(sent));
      } catch (const TException&) {
        ++failed;
        client.reset();
      }
    }
    std::lock_guard<std::mutex> lock(resultMutex);
    result.latencyUs.merge(mine);
    result.answered += mine.size();
    result.failed += failed;
  };

  std::vector<std::thread> callers;
  for (int i = 0; i < plan.callers; ++i) callers.emplace_back(caller, i);
  while (ready.load() < plan.callers) std::this_thread::yield();
  const Clock::time_point start = Clock::now();
  deadline = start + plan.duration;
  go.store(true);
  for (std::thread& thread : callers) thread.join();
  result.seconds = microsecondsSince(start) / 1e6;
  return result;
}

std::optional<std::string> RequestLoad::once(const Connector& connect, const std::string& request) {
  std::unique_ptr<ServiceConnection> client = clientOn(connect());
  if (!client) return std::nullopt;
  try {
    return client->request(request);
  } catch (const TException&) {
    return std::nullopt;
  }
}

}  // namespace zorvik
