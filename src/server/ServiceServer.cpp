#include "server/ServiceServer.h"

#include <sys/resource.h>
#include <thrift/concurrency/ThreadFactory.h>
#include <thrift/concurrency/ThreadManager.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/transport/TNonblockingServerSocket.h>

#include <cstdint>

#include "server/Shell.h"

namespace zorvik {
namespace {

using apache::thrift::concurrency::ThreadFactory;
using apache::thrift::concurrency::ThreadManager;
using apache::thrift::protocol::TBinaryProtocolFactory;
using apache::thrift::server::TNonblockingServer;
using apache::thrift::transport::TNonblockingServerSocket;

// Up to three requests run at once; further ones wait in an unbounded queue.
constexpr size_t kWorkerThreads = 3;
constexpr size_t kUnlimitedPendingTasks = 0;
// No request of this service comes near this size; a frame announcing more closes its connection
// instead of making a router allocate it.
constexpr size_t kMaxFrameSize = 4 * 1024 * 1024;
// No string of a message can be longer than its frame. Without this bound the binary protocol
// believes the length a caller announces and allocates (and zero-fills) that much before it
// finds the frame too short: a 16-byte frame announcing 2 GiB would make the router allocate
// 2 GiB, and a failed allocation ends the process inside Thrift.
constexpr int32_t kMaxStringSize = static_cast<int32_t>(kMaxFrameSize);
constexpr int32_t kNoContainerLimit = 0;
// Descriptors kept for the daemon's own needs (standard streams, log, store and its journal,
// timer pipe, Thrift's notification pipe and event loop, popen pipes, service clients) when the
// number of callers' connections is derived from the descriptor limit.
constexpr rlim_t kReservedDescriptors = 64;
// Callers beyond the limit are refused until the count is back at the limit, not below it.
constexpr double kNoOverloadHysteresis = 1.0;

std::shared_ptr<ThreadManager> startWorkers() {
  std::shared_ptr<ThreadManager> workers =
      ThreadManager::newSimpleThreadManager(kWorkerThreads, kUnlimitedPendingTasks);
  workers->threadFactory(std::make_shared<ThreadFactory>(/*detached=*/true));
  workers->start();
  return workers;
}

// Keeps callers' connections within the process's descriptor limit. Thrift ends serve() when
// accept() fails for want of a descriptor, which would end the daemon; connections beyond what
// the limit leaves after the daemon's own needs are therefore closed as soon as they are
// accepted. The limit itself is left as the system set it.
void limitConnections(TNonblockingServer& server) {
  rlimit descriptors{};
  if (getrlimit(RLIMIT_NOFILE, &descriptors) != 0 || descriptors.rlim_cur == RLIM_INFINITY) return;
  const rlim_t connections =
      descriptors.rlim_cur > kReservedDescriptors ? descriptors.rlim_cur - kReservedDescriptors : 1;
  server.setMaxConnections(static_cast<size_t>(connections));
  server.setOverloadAction(apache::thrift::server::T_OVERLOAD_CLOSE_ON_ACCEPT);
  server.setOverloadHysteresis(kNoOverloadHysteresis);
}

}  // namespace

std::unique_ptr<TNonblockingServer> ServiceServer::build(std::shared_ptr<ZorvikIf> handler,
                                                         int port) {
  auto processor = std::make_shared<ZorvikProcessor>(std::move(handler));
  // Strict read off (unversioned callers are accepted), strict write on, strings no longer
  // than a frame, containers unbounded (this service's messages hold none, and skipping an
  // unknown one allocates nothing).
  auto protocol =
      std::make_shared<TBinaryProtocolFactory>(kMaxStringSize, kNoContainerLimit, false, true);
  auto socket = std::make_shared<TNonblockingServerSocket>(kListenAddress, port);
  // Thrift creates both inheritable: a command still running after the daemon died would hold
  // the port (the restarted daemon could not bind) or a caller's connection.
  socket->setListenCallback(&Shell::keepFromChildren);
  socket->setAcceptCallback(&Shell::keepFromChildren);
  auto server = std::make_unique<TNonblockingServer>(processor, protocol, socket, startWorkers());
  server->setMaxFrameSize(kMaxFrameSize);
  limitConnections(*server);
  return server;
}

}  // namespace zorvik
