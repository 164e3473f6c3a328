#include "RawClient.h"

#include <poll.h>
#include <sys/socket.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/transport/TBufferTransports.h>
#include <unistd.h>

#include <memory>
#include <thread>
#include <vector>

#include "Zorvik.h"

namespace zorvik {
namespace {

using apache::thrift::protocol::T_CALL;
using apache::thrift::protocol::T_REPLY;
using apache::thrift::protocol::TBinaryProtocol;
using apache::thrift::protocol::TMessageType;
using apache::thrift::transport::TMemoryBuffer;
using Clock = std::chrono::steady_clock;

constexpr char kMethod[] = "request";
constexpr size_t kFrameHeaderSize = 4;
// Replies of this service stay far below this; a longer announced frame is not a reply.
constexpr uint32_t kLongestReply = 16 * 1024 * 1024;

// The reply text of one frame body; nothing when it is not a reply carrying one.
std::optional<std::string> decodeReply(std::vector<char>& body) {
  try {
    auto buffer = std::make_shared<TMemoryBuffer>(reinterpret_cast<uint8_t*>(body.data()),
                                                  static_cast<uint32_t>(body.size()));
    TBinaryProtocol protocol(buffer);
    std::string name;
    TMessageType type;
    int32_t sequence = 0;
    protocol.readMessageBegin(name, type, sequence);
    if (type != T_REPLY || name != kMethod) return std::nullopt;
    std::string reply;
    Zorvik_request_presult result;
    result.success = &reply;
    result.read(&protocol);
    if (!result.__isset.success) return std::nullopt;
    return reply;
  } catch (const apache::thrift::TException&) {
    return std::nullopt;
  }
}

int millisecondsUntil(Clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
  return left.count() < 0 ? 0 : static_cast<int>(left.count());
}

}  // namespace

RawClient::~RawClient() {
  if (socket_ >= 0) close(socket_);
}

bool RawClient::send(const std::string& bytes) {
  if (socket_ < 0) return false;
  size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t n = ::send(socket_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) return false;
    sent += static_cast<size_t>(n);
  }
  return true;
}

bool RawClient::sendSlowly(const std::string& bytes, std::chrono::milliseconds pause) {
  for (char byte : bytes) {
    if (!send(std::string(1, byte))) return false;
    std::this_thread::sleep_for(pause);
  }
  return true;
}

bool RawClient::receive(char* buffer, size_t size, Clock::time_point deadline) {
  size_t got = 0;
  while (got < size) {
    pollfd ready{socket_, POLLIN, 0};
    if (poll(&ready, 1, millisecondsUntil(deadline)) <= 0) return false;
    const ssize_t n = recv(socket_, buffer + got, size - got, 0);
    if (n <= 0) return false;
    got += static_cast<size_t>(n);
  }
  return true;
}

std::optional<std::string> RawClient::readReply(std::chrono::milliseconds timeout) {
  if (socket_ < 0) return std::nullopt;
  const Clock::time_point deadline = Clock::now() + timeout;
  unsigned char header[kFrameHeaderSize];
  if (!receive(reinterpret_cast<char*>(header), sizeof(header), deadline)) return std::nullopt;
  const uint32_t length = (uint32_t{header[0]} << 24) | (uint32_t{header[1]} << 16) |
                          (uint32_t{header[2]} << 8) | uint32_t{header[3]};
  if (length > kLongestReply) return std::nullopt;
  std::vector<char> body(length);
  if (!receive(body.data(), body.size(), deadline)) return std::nullopt;
  return decodeReply(body);
}

RawClient::PeerState RawClient::awaitPeer(std::chrono::milliseconds wait) {
  pollfd ready{socket_, POLLIN, 0};
  if (poll(&ready, 1, static_cast<int>(wait.count())) <= 0) return PeerState::kSilent;
  char byte = 0;
  return recv(socket_, &byte, 1, 0) > 0 ? PeerState::kAnswered : PeerState::kClosed;
}

void RawClient::abort() {
  if (socket_ < 0) return;
  const linger resetOnClose{1, 0};
  setsockopt(socket_, SOL_SOCKET, SO_LINGER, &resetOnClose, sizeof(resetOnClose));
  close(socket_);
  socket_ = -1;
}

bool RawClient::closedByPeer(std::chrono::milliseconds timeout) {
  if (socket_ < 0) return true;
  const Clock::time_point deadline = Clock::now() + timeout;
  char scratch[4096];
  for (;;) {
    pollfd ready{socket_, POLLIN, 0};
    if (poll(&ready, 1, millisecondsUntil(deadline)) <= 0) return false;
    if (recv(socket_, scratch, sizeof(scratch), 0) <= 0) return true;
  }
}

std::string RawClient::frameHeader(uint32_t length) {
  return {static_cast<char>(length >> 24), static_cast<char>(length >> 16),
          static_cast<char>(length >> 8), static_cast<char>(length)};
}

std::string RawClient::frame(const std::string& message) {
  return frameHeader(static_cast<uint32_t>(message.size())) + message;
}

std::string RawClient::callMessage(const std::string& parameter) {
  auto buffer = std::make_shared<TMemoryBuffer>();
  TBinaryProtocol protocol(buffer);
  protocol.writeMessageBegin(kMethod, T_CALL, 0);
  Zorvik_request_pargs arguments;
  arguments.parameter = &parameter;
  arguments.write(&protocol);
  protocol.writeMessageEnd();
  return buffer->getBufferAsString();
}

std::string RawClient::requestFrame(const std::string& parameter) {
  return frame(callMessage(parameter));
}

std::string RawClient::paddedRequestFrame(const std::string& command, size_t bodySize) {
  const std::string head = R"({"command":")" + command + R"(","pad":")";
  const std::string tail = R"("})";
  const size_t overhead = callMessage(head + tail).size();
  const size_t padding = bodySize > overhead ? bodySize - overhead : 0;
  return requestFrame(head + std::string(padding, 'x') + tail);
}

}  // namespace zorvik
