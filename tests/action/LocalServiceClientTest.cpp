// Both sibling-service clients against a scripted service on loopback: what a reply means, what
// is logged, and that the payload arrives byte for byte.
#include <gtest/gtest.h>

#include "HalvexServ.h"
#include "Kelmora.h"
#include "action/LocalServiceClient.h"
#include "support/LogCapture.h"
#include "support/ScriptedService.h"

namespace zorvik {
namespace {

template <typename ServiceIf, typename Processor>
void checkReplies(const std::string& name, bool (*send)(const std::string&, int)) {
  // The service's reply, the payload, whether the call succeeds, the error line it logs.
  const std::tuple<const char*, std::string, bool, std::string> rows[] = {
      {R"({"code":0,"data":[1]})", "{\"cmd\":1}", true, ""},
      {R"({"code":"0"})", std::string("not json\0\xff'\"\n{", 14), true, ""},
      {R"({"code":3})", "p", false, ""},
      {kScriptedThrow, "p", false, ""},
      {"ok", "p", false, name + " result is not json format"},
      {R"({"result":1})", "p", false, name + " json result not contain code"},
  };
  for (const auto& [reply, payload, ok, logged] : rows) {
    LogCapture log;
    ScriptedService<ServiceIf, Processor> service(reply);
    EXPECT_EQ(send(payload, service.port()), ok) << name << reply;
    EXPECT_EQ(service.received(), std::vector<std::string>{payload});
    EXPECT_EQ(log.entries(),
              logged.empty() ? std::vector<std::string>{} : std::vector{"E Action.cpp " + logged});
  }
}

TEST(LocalServiceClientTest, OnlyAReplyWithCodeZeroIsSuccess) {
  checkReplies<HalvexServIf, HalvexServProcessor>("Halvex", LocalServiceClient::sendToHalvex);
  checkReplies<kelmora::KelmoraIf, kelmora::KelmoraProcessor>("Kelmora",
                                                              LocalServiceClient::sendToKelmora);
}

}  // namespace
}  // namespace zorvik
