// zorvik: the scene daemon. It reports its command line, opens the system log, brings the scene
// engine up (store, registry, timer thread, NTP wait) and only then serves the Zorvik service on
// 127.0.0.1:9096 until it is killed. It takes no options.
//
// Threads: this thread becomes the server's only I/O thread; three worker threads run the
// `request` calls. Every object made here lives until the process ends.
//
// Output: the system log holds only the daemon's own lines. The Thrift library's messages
// (start-up notes, callers' bad frames) stay on standard error, where the library writes them
// and which the service file hands to the system log as the program's own output.
//
// Signals: the daemon leads a process group of its own, which every command it runs inherits,
// and passes a SIGTERM on to that group before it ends, so that a stop leaves no command
// running behind it.
#include <malloc.h>
#include <thrift/Thrift.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <memory>

#include "scene/SceneManager.h"
#include "server/Log.h"
#include "server/ServiceServer.h"
#include "server/ZorvikHandler.h"

namespace {

constexpr int kExitCannotServe = 1;

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

// The commands the daemon runs (a Wi-Fi switch, a curl with its 10 s time-out, the TV helper's
// wake-up loop) would otherwise outlive a stop: the init system signals the daemon alone. The
// handler restores the default action first, so the copy that kill() sends back to the daemon
// itself ends it as the signal always did.
extern "C" void passSignalToProcessGroup(int signal) {
  std::signal(signal, SIG_DFL);
  kill(0, signal);
}

void leadOwnProcessGroup() {
  setpgid(0, 0);  // refused only to a session leader, which leads its process group already
  if (getpgrp() == getpid()) std::signal(SIGTERM, passSignalToProcessGroup);
}

}  // namespace

int main(int argc, char** argv) {
  using zorvik::ServiceServer;
  leadOwnProcessGroup();
  returnLargeBuffersToTheSystem();
  std::cout << "argc is " << argc << ", argv is NULL? " << (argv == nullptr) << std::endl;
  zorvik::openLog();

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
