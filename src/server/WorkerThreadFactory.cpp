// WorkerThreadFactory: starts Thrift's worker threads with pthread attributes.
#include "server/WorkerThreadFactory.h"

#include <pthread.h>

#include <system_error>

namespace zorvik {
namespace {

using apache::thrift::concurrency::Runnable;
using apache::thrift::concurrency::Thread;

class WorkerThread : public Thread {
 public:
  explicit WorkerThread(std::shared_ptr<Runnable> runnable)
      : Thread(/*detached=*/true, std::move(runnable)) {}

  // Unlike Thrift's start(), returns without waiting for the thread: the thread holds its own
  // owner of this object from the start.
  void start() override {
    if (getState() != uninitialized) return;
    setState(starting);
    auto self = std::make_unique<std::shared_ptr<Thread>>(shared_from_this());
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, WorkerThreadFactory::kStackSize);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_t thread;
    const int error = pthread_create(&thread, &attributes, &WorkerThread::main, self.get());
    pthread_attr_destroy(&attributes);
    if (error != 0) throw std::system_error(error, std::generic_category(), "worker thread");
    self.release();  // now the thread's
  }

 private:
  static void* main(void* self) {
    const std::unique_ptr<std::shared_ptr<Thread>> owner(
        static_cast<std::shared_ptr<Thread>*>(self));
    threadMain(*owner);
    return nullptr;
  }
};

}  // namespace

std::shared_ptr<Thread> WorkerThreadFactory::newThread(std::shared_ptr<Runnable> runnable) const {
  auto thread = std::make_shared<WorkerThread>(runnable);
  runnable->thread(thread);
  return thread;
}

}  // namespace zorvik
