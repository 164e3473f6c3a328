// ServiceConnection: a caller of the Zorvik service over one connected socket, with the framed
// transport and binary protocol that the router's own callers use.
//
// Ownership: takes over the socket and closes it. Not shared between threads.
#ifndef ZORVIK_BENCH_SERVICECONNECTION_H_
#define ZORVIK_BENCH_SERVICECONNECTION_H_

#include <thrift/protocol/TProtocol.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TSocket.h>

#include <memory>
#include <string>

#include "Zorvik.h"

namespace zorvik {

class ServiceConnection {
 public:
  // `socket` is connected; a reply that takes longer than `timeoutMs` throws.
  explicit ServiceConnection(int socket, int timeoutMs = 30000);
  ~ServiceConnection();
  ServiceConnection(const ServiceConnection&) = delete;
  ServiceConnection& operator=(const ServiceConnection&) = delete;

  // One `request` call; throws apache::thrift::TException when the call fails.
  std::string request(const std::string& parameter);

 private:
  std::shared_ptr<apache::thrift::transport::TSocket> socket_;
  std::shared_ptr<apache::thrift::transport::TFramedTransport> framed_;
  std::shared_ptr<apache::thrift::protocol::TProtocol> protocol_;
  ZorvikClient client_;
};

}  // namespace zorvik

#endif  // ZORVIK_BENCH_SERVICECONNECTION_H_
