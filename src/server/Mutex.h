// Mutex: the daemon's locks, annotated so that Clang checks how they are used.
//
// Mutex wraps std::mutex and RecursiveMutex std::recursive_mutex (only for a lock whose holder
// calls code that may come back in) as capabilities of Clang's thread-safety analysis; MutexLock
// holds one for a scope. A field names the mutex that guards it (GUARDED_BY), a function the
// mutex its caller must hold (REQUIRES) or must not hold (EXCLUDES). Clang builds check this with
// -Wthread-safety, as errors; other compilers ignore the annotations.
//
// Threading: as the standard mutexes they wrap.
#ifndef ZORVIK_SERVER_MUTEX_H_
#define ZORVIK_SERVER_MUTEX_H_

#include <mutex>

#if defined(__clang__)
#define ZORVIK_THREAD_ANNOTATION(attribute) __attribute__((attribute))
#else
#define ZORVIK_THREAD_ANNOTATION(attribute)
#endif

#define CAPABILITY(name) ZORVIK_THREAD_ANNOTATION(capability(name))
#define SCOPED_CAPABILITY ZORVIK_THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(mutex) ZORVIK_THREAD_ANNOTATION(guarded_by(mutex))
#define REQUIRES(...) ZORVIK_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) ZORVIK_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) ZORVIK_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) ZORVIK_THREAD_ANNOTATION(release_capability(__VA_ARGS__))

namespace zorvik {

template <typename StandardMutex>
class CAPABILITY("mutex") BasicMutex {
 public:
  void lock() ACQUIRE() { mutex_.lock(); }
  void unlock() RELEASE() { mutex_.unlock(); }

 private:
  StandardMutex mutex_;
};

using Mutex = BasicMutex<std::mutex>;
using RecursiveMutex = BasicMutex<std::recursive_mutex>;

template <typename LockedMutex>
class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(LockedMutex& mutex) ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() RELEASE() { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  LockedMutex& mutex_;
};

}  // namespace zorvik

#endif  // ZORVIK_SERVER_MUTEX_H_
