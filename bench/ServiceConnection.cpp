#include "ServiceConnection.h"

#include <thrift/protocol/TBinaryProtocol.h>

namespace zorvik {

using apache::thrift::protocol::TBinaryProtocol;
using apache::thrift::transport::TFramedTransport;
using apache::thrift::transport::TSocket;

ServiceConnection::ServiceConnection(int socket, int timeoutMs)
    : socket_(std::make_shared<TSocket>(socket)),
      framed_(std::make_shared<TFramedTransport>(socket_)),
      protocol_(std::make_shared<TBinaryProtocol>(framed_)),
      client_(protocol_) {
  socket_->setRecvTimeout(timeoutMs);
  socket_->setSendTimeout(timeoutMs);
}

ServiceConnection::~ServiceConnection() { socket_->close(); }

std::string ServiceConnection::request(const std::string& parameter) {
  std::string reply;
  client_.request(reply, parameter);
  return reply;
}

}  // namespace zorvik
