// ZorvikHandler: passes each Thrift `request` call to the request tunnel.
#include "server/ZorvikHandler.h"

#include "server/ZorvikTunnel.h"

namespace zorvik {

void ZorvikHandler::request(std::string& reply, const std::string& parameter) {
  reply = ZorvikTunnel::getInstance().handleCommand(parameter);
}

}  // namespace zorvik
