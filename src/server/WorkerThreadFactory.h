// WorkerThreadFactory: makes the RPC server's worker threads, detached, with a 1 MiB stack.
//
// Thrift's own factory starts its threads through std::thread, which takes no attributes, so
// they get the C library's default stack: 128 KiB on the router's musl, little for a request
// that parses JSON, formats replies and runs SQLite. This factory's threads are started with
// pthread attributes instead (Thread::start() is virtual).
//
// What the thread manager sees: Thread::getId() is not virtual and reads the std::thread that
// Thrift's own start() would have made; these threads have none, so getId() gives the "no
// thread" id for every one of them. The manager uses worker ids for two things only: refusing a
// worker that would wait for room in a bounded task queue (the daemon's queue is unbounded) and
// forgetting the workers it removes (the daemon never removes any). Neither happens here. The
// other way to keep std::thread, raising the process-wide default stack around Thrift's start(),
// is not available: musl only ever raises that default, so every later thread would get 1 MiB.
//
// Threading: newThread() may be called from any thread. Each thread owns its Thread object
// (through a shared pointer) until its runnable returns.
#ifndef ZORVIK_SERVER_WORKERTHREADFACTORY_H_
#define ZORVIK_SERVER_WORKERTHREADFACTORY_H_

#include <thrift/concurrency/ThreadFactory.h>

#include <cstddef>
#include <memory>

namespace zorvik {

class WorkerThreadFactory : public apache::thrift::concurrency::ThreadFactory {
 public:
  static constexpr size_t kStackSize = 1024 * 1024;

  WorkerThreadFactory() : ThreadFactory(/*detached=*/true) {}

  std::shared_ptr<apache::thrift::concurrency::Thread> newThread(
      std::shared_ptr<apache::thrift::concurrency::Runnable> runnable) const override;
};

}  // namespace zorvik

#endif  // ZORVIK_SERVER_WORKERTHREADFACTORY_H_
