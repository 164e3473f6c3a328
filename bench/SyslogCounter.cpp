#include "SyslogCounter.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>
#include <string_view>

namespace zorvik {
namespace {

const char kTimerPassLine[] = "]process next event";
// Larger than any log line of the daemon.
constexpr size_t kDatagramSize = 65536;
// How often the drain looks at the stop request while the log is quiet.
constexpr int kPollMs = 100;

}  // namespace

SyslogCounter::SyslogCounter(std::string path) : path_(std::move(path)) {
  socket_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (socket_ < 0 || path_.size() >= sizeof(address.sun_path)) {
    throw std::runtime_error("cannot make a log socket at " + path_);
  }
  std::memcpy(address.sun_path, path_.c_str(), path_.size() + 1);
  unlink(path_.c_str());
  if (bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
    throw std::runtime_error("cannot bind the log socket " + path_);
  }
  thread_ = std::thread(&SyslogCounter::drain, this);
}

SyslogCounter::~SyslogCounter() {
  stopping_.store(true);
  thread_.join();
  close(socket_);
  unlink(path_.c_str());
}

void SyslogCounter::drain() {
  std::string datagram(kDatagramSize, '\0');
  pollfd waiting{socket_, POLLIN, 0};
  while (!stopping_.load()) {
    if (poll(&waiting, 1, kPollMs) <= 0) continue;
    const ssize_t got = recv(socket_, datagram.data(), datagram.size(), MSG_DONTWAIT);
    if (got <= 0) continue;
    lines_.fetch_add(1);
    if (std::string_view(datagram.data(), static_cast<size_t>(got)).find(kTimerPassLine) !=
        std::string_view::npos) {
      timerPasses_.fetch_add(1);
    }
  }
}

}  // namespace zorvik
