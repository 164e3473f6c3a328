#include "server/ServiceServer.h"

#include <sys/resource.h>
#include <thrift/concurrency/ThreadManager.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/transport/TNonblockingServerSocket.h>

#include <algorithm>
#include <cstdint>

#include "server/Shell.h"
#include "server/WorkerThreadFactory.h"

namespace zorvik {
namespace {

using apache::thrift::concurrency::ThreadManager;
using apache::thrift::protocol::TBinaryProtocolFactory;
using apache::thrift::server::TNonblockingServer;
using apache::thrift::transport::TNonblockingServerSocket;

// Up to three requests run at once; further ones wait in an unbounded queue.
constexpr size_t kWorkerThreads = 3;
constexpr size_t kUnlimitedPendingTasks = 0;
// No string of a message can be longer than its frame. Without this bound the binary protocol
// believes the length a caller announces and allocates (and zero-fills) that much before it
// finds the frame too short: a 16-byte frame announcing 2 GiB would make the router allocate
// 2 GiB, and a failed allocation ends the process inside Thrift.
constexpr int32_t kMaxStringSize = static_cast<int32_t>(ServiceServer::kMaxFrameSize);
constexpr int32_t kNoContainerLimit = 0;
// Far more than a handful of local callers need, and few enough that all of them sending a frame
// at the bound at once hold no more than 16 MiB of frames.
constexpr size_t kMaxConnections = 256;
// Descriptors kept for the daemon's own needs (standard streams, log, store and its journal,
// timer pipe, Thrift's notification pipe and event loop, popen pipes, service clients): with a
// low descriptor limit, fewer connections are served.
constexpr rlim_t kReservedDescriptors = 64;
// Callers beyond the limit are refused until the count is back at the limit, not below it.
constexpr double kNoOverloadHysteresis = 1.0;
// After every call, a connection's read or write buffer grown beyond this size by a large
// request or reply is given back, so that idle connections hold no more than this each.
// (Thrift's default checks only every 512 calls and when a connection closes.)
constexpr size_t kIdleBufferLimit = 1024;
constexpr int32_t kCheckBuffersEveryCall = 1;

std::shared_ptr<ThreadManager> startWorkers() {
  std::shared_ptr<ThreadManager> workers =
      ThreadManager::newSimpleThreadManager(kWorkerThreads, kUnlimitedPendingTasks);
  workers->threadFactory(std::make_shared<WorkerThreadFactory>());
  workers->start();
  return workers;
}

// The most connections the descriptor limit leaves room for, up to kMaxConnections.
size_t connectionLimit() {
  rlimit descriptors{};
  if (getrlimit(RLIMIT_NOFILE, &descriptors) != 0 || descriptors.rlim_cur == RLIM_INFINITY) {
    return kMaxConnections;
  }
  if (descriptors.rlim_cur <= kReservedDescriptors) return 1;
  return std::min<size_t>(kMaxConnections, descriptors.rlim_cur - kReservedDescriptors);
}

// Connections beyond the limit are closed as soon as they are accepted. Besides bounding memory,
// this keeps connections within the descriptor limit: Thrift ends serve() when accept() fails
// for want of a descriptor, which would end the daemon. The limit itself is left as the system
// set it.
void limitConnections(TNonblockingServer& server) {
  // Thrift closes a new connection only when more than its setting are open already, so it
  // serves one more than the setting.
  server.setMaxConnections(connectionLimit() - 1);
  server.setOverloadAction(apache::thrift::server::T_OVERLOAD_CLOSE_ON_ACCEPT);
  server.setOverloadHysteresis(kNoOverloadHysteresis);
}

// Large buffers go back after the call that needed them instead of staying with the connection.
void returnIdleBuffers(TNonblockingServer& server) {
  server.setIdleReadBufferLimit(kIdleBufferLimit);
  server.setIdleWriteBufferLimit(kIdleBufferLimit);
  server.setResizeBufferEveryN(kCheckBuffersEveryCall);
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
  returnIdleBuffers(*server);
  return server;
}

}  // namespace zorvik
