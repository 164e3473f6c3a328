// LocalServiceClient: one Thrift request to a sibling service and the reading of its reply.
#include "action/LocalServiceClient.h"

#include <json-c/json.h>
#include <thrift/Thrift.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TSocket.h>

#include <memory>

#include "HalvexServ.h"
#include "Kelmora.h"
#include "action/Action.h"
#include "server/Json.h"
#include "server/Log.h"
#include "server/Shell.h"

namespace zorvik {
namespace {

// What a call that failed inside the Thrift library counts as.
constexpr char kUnreachableReply[] = "{\"code\": -1}";
constexpr char kCodeKey[] = "code";

// One request/reply exchange with the service whose generated client is `Client`. On a library
// error the close is skipped: the socket closes when its last owner lets go of it.
template <typename Client>
std::string exchange(int port, const std::string& payload) {
  using apache::thrift::protocol::TBinaryProtocol;
  using apache::thrift::transport::TFramedTransport;
  using apache::thrift::transport::TSocket;
  auto socket = std::make_shared<TSocket>(LocalServiceClient::kServiceHost, port);
  auto transport = std::make_shared<TFramedTransport>(socket);
  auto protocol = std::make_shared<TBinaryProtocol>(transport);
  Client client(protocol);
  std::string reply;
  try {
    transport->open();
    // Thrift opens the socket inheritable; a command run meanwhile must not keep it.
    Shell::keepFromChildren(socket->getSocketFD());
    client.request(reply, payload);
    transport->close();
  } catch (const apache::thrift::TException&) {
    reply = kUnreachableReply;
  }
  return reply;
}

// True when `reply` is a JSON object whose "code" reads as the integer 0 (json-c converts a
// string such as "0").
bool isSuccessReply(const char* service, const std::string& reply) {
  Json::Document json = Json::parse(reply);
  if (!json) {
    ZLOG_AS(kActionLogModule, kLogError) << service << " result is not json format";
    return false;
  }
  json_object* code = Json::member(json.get(), kCodeKey);
  if (code == nullptr) {
    ZLOG_AS(kActionLogModule, kLogError) << service << " json result not contain code";
    return false;
  }
  return json_object_get_int(code) == 0;
}

}  // namespace

bool LocalServiceClient::sendToHalvex(const std::string& payload, int port) {
  return isSuccessReply("Halvex", exchange<HalvexServClient>(port, payload));
}

bool LocalServiceClient::sendToKelmora(const std::string& payload, int port) {
  return isSuccessReply("Kelmora", exchange<kelmora::KelmoraClient>(port, payload));
}

}  // namespace zorvik
