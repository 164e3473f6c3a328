// RawClient: a connection to the daemon's service on which the test writes exactly the bytes it
// chooses (a frame dribbled a byte at a time, a frame at or beyond the size bound, garbage, a
// call cut in two) and reads framed replies back or watches what the daemon does with the
// connection, none of which the generated client can do. The static functions build frames.
//
// Ownership: owns the connected socket and closes it. Not shared between threads.
#ifndef ZORVIK_TESTS_E2E_RAWCLIENT_H_
#define ZORVIK_TESTS_E2E_RAWCLIENT_H_

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace zorvik {

class RawClient {
 public:
  // What the daemon does with the connection within a wait.
  enum class PeerState { kClosed, kAnswered, kSilent };

  // `socket` is connected, or -1 (then every operation fails).
  explicit RawClient(int socket) : socket_(socket) {}
  ~RawClient();
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;
  RawClient(RawClient&& other) noexcept : socket_(other.socket_) { other.socket_ = -1; }

  bool connected() const { return socket_ >= 0; }
  // Sends every byte; false once the daemon has closed or reset the connection.
  bool send(const std::string& bytes);
  // Sends the bytes one at a time with `pause` after each.
  bool sendSlowly(const std::string& bytes, std::chrono::milliseconds pause);
  // The reply text of the next reply frame; nothing when the connection ends, the frame is not a
  // reply of "request", or nothing complete arrives within `timeout`.
  std::optional<std::string> readReply(std::chrono::milliseconds timeout);
  // True when the daemon ends the connection (end of file or reset) within `timeout`; bytes it
  // sends meanwhile are skipped.
  bool closedByPeer(std::chrono::milliseconds timeout);
  // Whether the daemon closes the connection, sends something (its first byte is consumed), or
  // does neither within `wait`.
  PeerState awaitPeer(std::chrono::milliseconds wait);
  // Leaves with a reset instead of an orderly close.
  void abort();

  // The 4-byte big-endian length that starts a frame.
  static std::string frameHeader(uint32_t length);
  // `message` behind the header that announces its length.
  static std::string frame(const std::string& message);
  // An unframed "request" call message carrying `parameter`, as the generated client writes it.
  static std::string callMessage(const std::string& parameter);
  // A framed "request" call carrying `parameter`, as the router's own callers send it.
  static std::string requestFrame(const std::string& parameter);
  // A framed "request" call of `command` whose frame body is exactly `bodySize` bytes: the JSON
  // is padded with a member the daemon ignores.
  static std::string paddedRequestFrame(const std::string& command, size_t bodySize);

 private:
  // Reads exactly `size` bytes before `deadline`; false when the connection ends or time is up.
  bool receive(char* buffer, size_t size, std::chrono::steady_clock::time_point deadline);

  int socket_;
};

}  // namespace zorvik

#endif  // ZORVIK_TESTS_E2E_RAWCLIENT_H_
