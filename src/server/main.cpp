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
// Buffers from this size up are mapped on their own and handed back to the system when freed.
constexpr int kLargeBufferSize = 128 * 1024;

// Thrift's own diagnostics go to the daemon's log. They mix start-up notes with callers' faults
// (a reset connection, an oversized frame), none of them a fault of the daemon: info level.
void logThriftOutput(const char* message) { ZLOG(zorvik::kLogInfo) << "thrift: " << message; }

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
