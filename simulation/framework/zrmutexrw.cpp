// The lock of the framework is a mutex that inherits priorities: a command thread that holds it
// runs with the priority of the cycle thread that waits for it. A reader-writer lock of the system
// inherits none, so a thread of middle priority could delay the cycle without bound. Therefore read
// sections are exclusive, too.

#include <pthread.h>

#include <boost/make_shared.hpp>
#include <system_error>
#include <utility>

#include "platform/zr/zrcriticalsectionwrite.h"
#include "platform/zr/zrmutexrw.h"

namespace {

void check(int failure, const char* what) {
  if (failure != 0) {
    throw std::system_error(failure, std::generic_category(), what);
  }
}

class PriorityInheritingMutex : public ZR::ZRMutexRW {
 public:
  PriorityInheritingMutex() {
    pthread_mutexattr_t attributes;
    check(pthread_mutexattr_init(&attributes), "pthread_mutexattr_init");
    int failure = pthread_mutexattr_setprotocol(&attributes, PTHREAD_PRIO_INHERIT);
    if (failure == 0) {
      failure = pthread_mutex_init(&mutex_, &attributes);
    }
    pthread_mutexattr_destroy(&attributes);
    check(failure, "a mutex that inherits priorities");
  }
  ~PriorityInheritingMutex() { pthread_mutex_destroy(&mutex_); }

  PriorityInheritingMutex(const PriorityInheritingMutex&) = delete;
  PriorityInheritingMutex& operator=(const PriorityInheritingMutex&) = delete;

  void lock() { check(pthread_mutex_lock(&mutex_), "pthread_mutex_lock"); }
  void unlock() { pthread_mutex_unlock(&mutex_); }

 private:
  pthread_mutex_t mutex_{};
};

PriorityInheritingMutex& mutexOf(const boost::shared_ptr<ZR::ZRMutexRW>& lock) {
  return static_cast<PriorityInheritingMutex&>(*lock);
}

}  // namespace

namespace ZR {

boost::shared_ptr<ZRMutexRW> ZRMutexRW::createZRMutexRW() {
  return boost::make_shared<PriorityInheritingMutex>();
}

ZRCriticalSectionWrite::ZRCriticalSectionWrite(boost::shared_ptr<ZRMutexRW> mutex)
    : mutex_(std::move(mutex)) {
  mutexOf(mutex_).lock();
}

ZRCriticalSectionWrite::~ZRCriticalSectionWrite() {
  mutexOf(mutex_).unlock();
}

}  // namespace ZR
