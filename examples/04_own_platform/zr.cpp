// The lock that the cycle and all who send commands take in turns. It inherits
// priorities: a sender that holds it runs as high as the cycle that waits for it.
// Else any thread between the two holds up the sender, and so the cycle, without
// bound. The library never takes it twice, so it need not be recursive.

#include <pthread.h>

#include <boost/make_shared.hpp>
#include <system_error>
#include <utility>

#include "platform/zr/zrcriticalsectionwrite.h"

namespace {

void check(int failure) {
  if (failure != 0) {
    throw std::system_error(failure, std::generic_category(), "the lock of the timelines");
  }
}

struct Lock : ZR::ZRMutexRW {
  Lock() {
    pthread_mutexattr_t attributes;
    check(pthread_mutexattr_init(&attributes));
    check(pthread_mutexattr_setprotocol(&attributes, PTHREAD_PRIO_INHERIT));
    check(pthread_mutex_init(&mutex, &attributes));
    pthread_mutexattr_destroy(&attributes);
  }
  ~Lock() { pthread_mutex_destroy(&mutex); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  pthread_mutex_t mutex{};
};

}  // namespace

namespace ZR {

// Owes a new lock at each call; with one for all, two tables wait for each other.
boost::shared_ptr<ZRMutexRW> ZRMutexRW::createZRMutexRW() {
  return boost::make_shared<Lock>();
}

// Owes the lock or an exception, and keeps the lock alive. One that comes back
// without it lets the cycle and a sender relink the same list at the same time.
ZRCriticalSectionWrite::ZRCriticalSectionWrite(boost::shared_ptr<ZRMutexRW> mutex)
    : mutex_(std::move(mutex)) {
  check(pthread_mutex_lock(&static_cast<Lock&>(*mutex_).mutex));
}

// Owes to let go, and not to throw: a destructor that throws ends the process.
ZRCriticalSectionWrite::~ZRCriticalSectionWrite() {
  pthread_mutex_unlock(&static_cast<Lock&>(*mutex_).mutex);
}

}  // namespace ZR
