#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <thread>

#include "HalvexServ.h"
#include "Kelmora.h"
#include "action/LocalServiceClient.h"
#include "support/LogCapture.h"
#include "support/ScriptedService.h"

namespace zorvik {
namespace {

using Lines = std::vector<std::string>;

// A plain listening socket on 127.0.0.1 and a free port.
class RawListener {
 public:
  RawListener() : fd_(socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(fd_, 4) != 0) {
      throw std::runtime_error("cannot listen on loopback");
    }
    socklen_t length = sizeof(address);
    getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
  }
  ~RawListener() { close(fd_); }

  int port() const { return port_; }
  // Accepts one connection and closes it at once, without reading or answering.
  void acceptAndClose() const {
    const int connection = accept(fd_, nullptr, nullptr);
    if (connection >= 0) close(connection);
  }

 private:
  const int fd_;
  int port_ = 0;
};

struct Halvex {
  using If = HalvexServIf;
  using Processor = HalvexServProcessor;
  static constexpr char kLogName[] = "Halvex";
  static bool send(const std::string& payload, int port) {
    return LocalServiceClient::sendToHalvex(payload, port);
  }
};

struct Kelmora {
  using If = kelmora::KelmoraIf;
  using Processor = kelmora::KelmoraProcessor;
  static constexpr char kLogName[] = "Kelmora";
  static bool send(const std::string& payload, int port) {
    return LocalServiceClient::sendToKelmora(payload, port);
  }
};

TEST(LocalServiceEndpointTest, SiblingServicesLiveOnLocalhost) {
  EXPECT_STREQ(LocalServiceClient::kServiceHost, "localhost");
  EXPECT_EQ(LocalServiceClient::kHalvexPort, 9092);
  EXPECT_EQ(LocalServiceClient::kKelmoraPort, 9090);
}

template <typename Traits>
class LocalServiceClientTest : public ::testing::Test {
 protected:
  // Sends `payload` to a service that answers `reply`; the service's view of the payload is
  // checked too.
  bool exchange(const std::string& reply, const std::string& payload = "{\"cmd\":1}") {
    ScriptedService<Traits> service(reply);
    const bool result = Traits::send(payload, service.port());
    EXPECT_EQ(service.received(), Lines{payload});
    return result;
  }

  std::string logged(const char* fault) const { return std::string(Traits::kLogName) + fault; }

  LogCapture capture_;
};

using Services = ::testing::Types<Halvex, Kelmora>;
TYPED_TEST_SUITE(LocalServiceClientTest, Services);

TYPED_TEST(LocalServiceClientTest, CodeZeroIsSuccessAndOtherCodesAreNot) {
  EXPECT_TRUE(this->exchange("{\"code\":0}"));
  EXPECT_TRUE(this->exchange("{\"code\":0,\"data\":[1,2]}"));
  EXPECT_TRUE(this->exchange("{\"code\":\"0\"}"));
  EXPECT_FALSE(this->exchange("{\"code\":3}"));
  EXPECT_FALSE(this->exchange("{\"code\":-1}"));
  EXPECT_TRUE(this->capture_.lines().empty());
}

TYPED_TEST(LocalServiceClientTest, ReplyThatIsNotJsonIsLogged) {
  EXPECT_FALSE(this->exchange("ok"));
  EXPECT_FALSE(this->exchange(""));
  EXPECT_EQ(this->capture_.messages(), (Lines{this->logged(" result is not json format"),
                                              this->logged(" result is not json format")}));
  for (const CapturedLine& line : this->capture_.lines()) {
    EXPECT_EQ(line.text.rfind("[ZORVIK ERROR Action.cpp:", 0), 0u) << line.text;
  }
}

TYPED_TEST(LocalServiceClientTest, ReplyWithoutCodeIsLogged) {
  EXPECT_FALSE(this->exchange("{\"result\":1}"));
  EXPECT_FALSE(this->exchange("{\"code\":null}"));
  EXPECT_FALSE(this->exchange("[0]"));
  EXPECT_EQ(this->capture_.messages(), Lines(3, this->logged(" json result not contain code")));
  for (const CapturedLine& line : this->capture_.lines()) {
    EXPECT_EQ(line.text.rfind("[ZORVIK ERROR Action.cpp:", 0), 0u) << line.text;
  }
}

TYPED_TEST(LocalServiceClientTest, PayloadArrivesByteForByte) {
  EXPECT_TRUE(this->exchange("{\"code\":0}", "not json at all"));
  EXPECT_TRUE(this->exchange("{\"code\":0}", std::string("\x00\xff'\"\n{", 6)));
  EXPECT_TRUE(this->exchange("{\"code\":0}", ""));
  EXPECT_TRUE(this->exchange("{\"code\":0}", std::string(100000, 'x')));
}

TYPED_TEST(LocalServiceClientTest, ServiceFailureCountsAsUnreachable) {
  EXPECT_FALSE(this->exchange(kScriptedThrow));
  EXPECT_TRUE(this->capture_.lines().empty());
}

TYPED_TEST(LocalServiceClientTest, NothingListeningFailsWithoutALogLine) {
  int port;
  {
    RawListener probe;
    port = probe.port();
  }
  EXPECT_FALSE(TypeParam::send("{\"cmd\":1}", port));
  EXPECT_TRUE(this->capture_.lines().empty());
}

TYPED_TEST(LocalServiceClientTest, ConnectionClosedWithoutReplyFailsWithoutALogLine) {
  RawListener listener;
  std::thread closer([&listener] { listener.acceptAndClose(); });
  EXPECT_FALSE(TypeParam::send("{\"cmd\":1}", listener.port()));
  closer.join();
  EXPECT_TRUE(this->capture_.lines().empty());
}

}  // namespace
}  // namespace zorvik
