#include "SyslogDrain.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace zorvik {
namespace {

// Longer than any line the daemon logs; a longer datagram would arrive cut.
constexpr size_t kMaxDatagram = 64 * 1024;
// How often the drain thread looks at its stop flag while the log is quiet.
constexpr int kPollMs = 100;

}  // namespace

SyslogDrain::SyslogDrain(std::string path, std::FILE* echo) : path_(std::move(path)), echo_(echo) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path_.size() >= sizeof(address.sun_path)) throw std::runtime_error("log path too long");
  std::memcpy(address.sun_path, path_.c_str(), path_.size() + 1);
  socket_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (socket_ < 0) throw std::runtime_error("cannot create the log socket");
  ::unlink(path_.c_str());
  if (::bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
    ::close(socket_);
    throw std::runtime_error("cannot bind the log socket " + path_);
  }
  thread_ = std::thread(&SyslogDrain::drain, this);
}

SyslogDrain::~SyslogDrain() {
  stopping_ = true;
  thread_.join();
  ::close(socket_);
  ::unlink(path_.c_str());
}

void SyslogDrain::drain() {
  std::vector<char> buffer(kMaxDatagram);
  while (!stopping_) {
    pollfd ready{socket_, POLLIN, 0};
    if (::poll(&ready, 1, kPollMs) <= 0) continue;
    const ssize_t size = ::recv(socket_, buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (size > 0) keep(std::string(buffer.data(), static_cast<size_t>(size)));
  }
}

void SyslogDrain::keep(std::string line) {
  if (echo_ != nullptr) {
    // The "<priority>" tag means nothing to a reader.
    if (!line.empty() && line[0] == '<') line.erase(0, line.find('>') + 1);
    if (line.empty() || line.back() != '\n') line += '\n';
    std::fputs(line.c_str(), echo_);
    std::fflush(echo_);
    return;
  }
  std::lock_guard<std::mutex> lock(mutex_);
  lines_.push_back(std::move(line));
  changed_.notify_all();
}

std::vector<std::string> SyslogDrain::lines() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return lines_;
}

int SyslogDrain::count(const std::string& needle) const {
  std::lock_guard<std::mutex> lock(mutex_);
  return static_cast<int>(std::count_if(lines_.begin(), lines_.end(), [&](const std::string& line) {
    return line.find(needle) != std::string::npos;
  }));
}

bool SyslogDrain::waitFor(const std::string& needle, std::chrono::milliseconds timeout) const {
  std::unique_lock<std::mutex> lock(mutex_);
  return changed_.wait_for(lock, timeout, [&] {
    return std::any_of(lines_.begin(), lines_.end(), [&](const std::string& line) {
      return line.find(needle) != std::string::npos;
    });
  });
}

}  // namespace zorvik
