// ServiceServer: builds the non-blocking Thrift server of the Zorvik service with the daemon's
// settings: one I/O thread (the one that calls serve()), three detached worker threads with a
// 1 MiB stack each (WorkerThreadFactory) and an unbounded queue, framed transport, binary
// protocol (strict read off, strict write on), listening on 127.0.0.1 only, with frames, strings
// and connections bounded for a small router.
//
// Ownership: the returned server owns the handler, the processor, the socket and the workers.
#ifndef ZORVIK_SERVER_SERVICESERVER_H_
#define ZORVIK_SERVER_SERVICESERVER_H_

#include <thrift/server/TNonblockingServer.h>

#include <cstddef>
#include <memory>

#include "Zorvik.h"

namespace zorvik {

class ServiceServer {
 public:
  // Loopback only: the service is for processes on the router itself.
  static constexpr const char* kListenAddress = "127.0.0.1";
  static constexpr int kListenPort = 9096;
  // The daemon's callers are a handful of local processes, and a scene's whole action list is
  // meant to fit in 10 KiB. A frame of up to this many bytes is read and answered; a frame
  // announcing more closes its connection before anything is allocated for it. With the cap on
  // connections this bounds the memory that requests in flight can take.
  static constexpr size_t kMaxFrameSize = 64 * 1024;

  // The server for `handler` on kListenAddress:`port`; it binds when serve() is called.
  static std::unique_ptr<apache::thrift::server::TNonblockingServer> build(
      std::shared_ptr<ZorvikIf> handler, int port = kListenPort);
};

}  // namespace zorvik

#endif  // ZORVIK_SERVER_SERVICESERVER_H_
