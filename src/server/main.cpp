// zorvik: the scene daemon. It reports its command line, opens the system log, brings the scene
// engine up (store, registry, timer thread, NTP wait) and only then serves the Zorvik service on
// 127.0.0.1:9096 until it is killed. It takes no options.
//
// Threads: this thread becomes the server's only I/O thread; three worker threads run the
// `request` calls. Every object made here lives until the process ends.
#include <malloc.h>
#include <thrift/Thrift.h>

#include <cstdlib>
#include <iostream>
#include <memory>

#include "scene/SceneManager.h"
#include "server/Log.h"
#include "server/ServiceServer.h"
#include "server/ZorvikHandler.h"

namespace {

constexpr int kExitCannotServe = 1;

// Thrift's own diagnostics go to the daemon's log. They mix start-up notes with callers' faults
// (a reset connection, an oversized frame), none of them a fault of the daemon: info level.
void logThriftOutput(const char* message) { ZLOG(zorvik::kLogInfo) << "thrift: " << message; }

// A request near the frame bound passes through buffers the size of a frame or larger (Thrift's
// read buffer, the parameter, the reply) on the I/O thread and on a worker. glibc raises its
// mmap threshold when such a buffer is freed and then serves the next ones from the thread's
// heap, where a flood of large requests would leave them resident. With the threshold fixed at
// the frame bound every such buffer is mapped on its own and goes back to the system as soon
// as it is freed. Other C libraries (musl) return large blocks anyway.
void returnLargeBuffersToTheSystem() {
#if defined(__GLIBC__)
  mallopt(M_MMAP_THRESHOLD, static_cast<int>(zorvik::ServiceServer::kMaxFrameSize));
#endif
}

}  // namespace

int main(int argc, char** argv) {
  using zorvik::ServiceServer;
  returnLargeBuffersToTheSystem();
  std::cout << "argc is " << argc << ", argv is NULL? " << (argv == nullptr) << std::endl;
  zorvik::openLog();
  apache::thrift::GlobalOutput.setOutputFunction(logThriftOutput);

  // The scene engine is up before the server exists: no request is served before it.
  zorvik::SceneManager::instance()->start();

  auto server = ServiceServer::build(std::make_shared<zorvik::ZorvikHandler>());
  std::cout << "run server accept all connections." << std::endl;
  try {
    server->serve();
  } catch (const apache::thrift::TException& error) {
    // The port is taken, most likely by another zorvik. The scene engine's threads are still
    // running, so leave without running static destructors under them.
    std::cerr << "zorvik: cannot serve on " << ServiceServer::kListenAddress << ":"
              << ServiceServer::kListenPort << ": " << error.what() << std::endl;
    std::_Exit(kExitCannotServe);
  }
  return 0;
}
