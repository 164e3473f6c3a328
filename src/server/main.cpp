// zorvik: the scene daemon. It reports its command line, opens the system log, brings the scene
// engine up (store, registry, timer thread, NTP wait) and only then serves the Zorvik service on
// 127.0.0.1:9096 until it is killed. It takes no options.
//
// Threads: this thread becomes the server's only I/O thread; three worker threads run the
// `request` calls. Every object made here lives until the process ends.
#include <malloc.h>
#include <sys/resource.h>
#include <thrift/Thrift.h>
#include <thrift/concurrency/ThreadFactory.h>
#include <thrift/concurrency/ThreadManager.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/server/TNonblockingServer.h>
#include <thrift/transport/TNonblockingServerSocket.h>

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <memory>

#include "Zorvik.h"
#include "scene/SceneManager.h"
#include "server/Log.h"
#include "server/ZorvikHandler.h"

namespace {

using apache::thrift::TException;
using apache::thrift::concurrency::ThreadFactory;
using apache::thrift::concurrency::ThreadManager;
using apache::thrift::protocol::TBinaryProtocolFactory;
using apache::thrift::server::TNonblockingServer;
using apache::thrift::transport::TNonblockingServerSocket;

// Loopback only: the service is for processes on the router itself.
constexpr const char* kListenAddress = "127.0.0.1";
constexpr int kListenPort = 9096;
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
constexpr int kExitCannotServe = 1;
// Descriptors kept for the daemon's own needs (standard streams, log, store and its journal,
// timer pipe, Thrift's notification pipe and event loop, popen pipes, service clients) when the
// number of callers' connections is derived from the descriptor limit.
constexpr rlim_t kReservedDescriptors = 64;
// Callers beyond the limit are refused until the count is back at the limit, not below it.
constexpr double kNoOverloadHysteresis = 1.0;
// Buffers from this size up are mapped on their own and handed back to the system when freed.
constexpr int kLargeBufferSize = 128 * 1024;

// Thrift's own diagnostics go to the daemon's log. They mix start-up notes with callers' faults
// (a reset connection, an oversized frame), none of them a fault of the daemon: info level.
void logThriftOutput(const char* message) { ZLOG(zorvik::kLogInfo) << "thrift: " << message; }

std::shared_ptr<ThreadManager> startWorkers() {
  std::shared_ptr<ThreadManager> workers =
      ThreadManager::newSimpleThreadManager(kWorkerThreads, kUnlimitedPendingTasks);
  workers->threadFactory(std::make_shared<ThreadFactory>(/*detached=*/true));
  workers->start();
  return workers;
}

// A request near the frame bound passes through buffers of several MiB (frame, parameter, JSON
// parser) on the I/O thread and on a worker. glibc raises its mmap threshold when such a buffer
// is freed and then serves the next ones from the thread's arena, where they stay resident:
// after a few large requests the daemon kept some 50 MiB for good. A fixed threshold keeps
// large buffers mapped on their own, so memory goes back to the system once a request is done.
// Other C libraries (musl) return large blocks anyway.
void returnLargeBuffersToTheSystem() {
#if defined(__GLIBC__)
  mallopt(M_MMAP_THRESHOLD, kLargeBufferSize);
#endif
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

std::unique_ptr<TNonblockingServer> buildServer() {
  auto processor =
      std::make_shared<zorvik::ZorvikProcessor>(std::make_shared<zorvik::ZorvikHandler>());
  // Strict read off (unversioned callers are accepted), strict write on, strings no longer
  // than a frame, containers unbounded (this service's messages hold none, and skipping an
  // unknown one allocates nothing).
  auto protocol =
      std::make_shared<TBinaryProtocolFactory>(kMaxStringSize, kNoContainerLimit, false, true);
  auto socket = std::make_shared<TNonblockingServerSocket>(kListenAddress, kListenPort);
  auto server = std::make_unique<TNonblockingServer>(processor, protocol, socket, startWorkers());
  server->setMaxFrameSize(kMaxFrameSize);
  limitConnections(*server);
  return server;
}

}  // namespace

int main(int argc, char** argv) {
  returnLargeBuffersToTheSystem();
  std::cout << "argc is " << argc << ", argv is NULL? " << (argv == nullptr) << std::endl;
  zorvik::openLog();
  apache::thrift::GlobalOutput.setOutputFunction(logThriftOutput);

  // The scene engine is up before the server exists: no request is served before it.
  zorvik::SceneManager::instance()->start();

  std::unique_ptr<TNonblockingServer> server = buildServer();
  std::cout << "run server accept all connections." << std::endl;
  try {
    server->serve();
  } catch (const TException& error) {
    // The port is taken, most likely by another zorvik. The scene engine's threads are still
    // running, so leave without running static destructors under them.
    std::cerr << "zorvik: cannot serve on " << kListenAddress << ":" << kListenPort << ": "
              << error.what() << std::endl;
    std::_Exit(kExitCannotServe);
  }
  return 0;
}
