// zorvik_empty_server: the baseline of the request benchmarks. It serves the Zorvik service with
// exactly the daemon's Thrift stack and settings (non-blocking server, one I/O thread, three
// workers, framed transport, binary protocol with strict write, the same frame bound), but its
// handler does no work: every call is answered with the same short success reply.
//
// Usage: zorvik_empty_server PORT (listens on 127.0.0.1:PORT until killed).
#include <thrift/concurrency/ThreadFactory.h>
#include <thrift/concurrency/ThreadManager.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/server/TNonblockingServer.h>
#include <thrift/transport/TNonblockingServerSocket.h>

#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>

#include "Zorvik.h"

namespace {

using apache::thrift::concurrency::ThreadFactory;
using apache::thrift::concurrency::ThreadManager;
using apache::thrift::protocol::TBinaryProtocolFactory;
using apache::thrift::server::TNonblockingServer;
using apache::thrift::transport::TNonblockingServerSocket;

constexpr const char* kListenAddress = "127.0.0.1";
constexpr size_t kWorkerThreads = 3;
constexpr size_t kUnlimitedPendingTasks = 0;
constexpr size_t kMaxFrameSize = 4 * 1024 * 1024;
const char kReply[] = "{ \"code\": 0, \"msg\": \"\" }";

class EmptyHandler : public zorvik::ZorvikIf {
 public:
  void request(std::string& reply, const std::string&) override { reply = kReply; }
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: zorvik_empty_server PORT" << std::endl;
    return 2;
  }
  auto workers = ThreadManager::newSimpleThreadManager(kWorkerThreads, kUnlimitedPendingTasks);
  workers->threadFactory(std::make_shared<ThreadFactory>(/*detached=*/true));
  workers->start();
  auto processor = std::make_shared<zorvik::ZorvikProcessor>(std::make_shared<EmptyHandler>());
  auto protocol = std::make_shared<TBinaryProtocolFactory>(0, 0, false, true);
  auto socket = std::make_shared<TNonblockingServerSocket>(kListenAddress, std::atoi(argv[1]));
  TNonblockingServer server(processor, protocol, socket, workers);
  server.setMaxFrameSize(kMaxFrameSize);
  server.serve();
  return 0;
}
