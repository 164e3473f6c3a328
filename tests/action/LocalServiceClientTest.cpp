// Both sibling-service clients against a service on loopback that answers one call with a
// scripted reply: what a reply means, what is logged, and that the payload arrives byte for byte.
#include <gtest/gtest.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TServerSocket.h>

#include <thread>

#include "HalvexServ.h"
#include "Kelmora.h"
#include "action/LocalServiceClient.h"
#include "support/LogCapture.h"

namespace zorvik {
namespace {

using namespace apache::thrift;
const char kThrow[] = "<throw>";  // the service fails the call instead of replying

// Either service: both have the one method request(text) -> text.
struct Service : HalvexServIf, kelmora::KelmoraIf {
  explicit Service(std::string reply) : reply(std::move(reply)) {}
  void request(std::string& result, const std::string& text) override {
    received.push_back(text);
    if (reply == kThrow) throw std::runtime_error("service failure");
    result = reply;
  }
  const std::string reply;
  std::vector<std::string> received;  // read once the serving thread has ended
};

template <typename Processor>
void checkReplies(const std::string& name, bool (*send)(const std::string&, int)) {
  // The service's reply, the payload, whether the call succeeds, the error line it logs.
  const std::tuple<const char*, std::string, bool, std::string> rows[] = {
      {R"({"code":0,"data":[1]})", "{\"cmd\":1}", true, ""},
      {R"({"code":"0"})", std::string("not json\0\xff'\"\n{", 14), true, ""},
      {R"({"code":3})", "p", false, ""},
      {kThrow, "p", false, ""},
      {"ok", "p", false, name + " result is not json format"},
      {R"({"result":1})", "p", false, name + " json result not contain code"},
  };
  for (const auto& [reply, payload, ok, logged] : rows) {
    LogCapture log;
    const auto service = std::make_shared<Service>(reply);
    transport::TServerSocket socket("127.0.0.1", 0);
    socket.listen();
    std::thread serving([&] {
      auto connection = std::make_shared<transport::TFramedTransport>(socket.accept());
      auto protocol = std::make_shared<protocol::TBinaryProtocol>(connection);
      Processor(service).process(protocol, protocol, nullptr);
    });
    EXPECT_EQ(send(payload, socket.getPort()), ok) << name << reply;
    serving.join();
    EXPECT_EQ(service->received, std::vector<std::string>{payload});
    EXPECT_EQ(log.entries(),
              logged.empty() ? std::vector<std::string>{} : std::vector{"E Action.cpp " + logged});
  }
}

TEST(LocalServiceClientTest, OnlyAReplyWithCodeZeroIsSuccess) {
  checkReplies<HalvexServProcessor>("Halvex", LocalServiceClient::sendToHalvex);
  checkReplies<kelmora::KelmoraProcessor>("Kelmora", LocalServiceClient::sendToKelmora);
}

}  // namespace
}  // namespace zorvik
