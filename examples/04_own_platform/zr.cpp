// The lock that the cycle and the senders of commands take in turn. It inherits
// priorities: a sender that holds it runs with the priority of the cycle that waits for
// it. Otherwise any thread with a priority between the two could delay the sender, and
// so the cycle, without bound. The library never locks it twice, so it is not recursive.

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

// Must return a new lock at each call; with one lock for all, two tables wait for each other.
boost::shared_ptr<ZRMutexRW> ZRMutexRW::createZRMutexRW() {
  return boost::make_shared<Lock>();
}

// Must hold the lock or throw, and keep the lock alive. If it returned without the lock,
// the cycle and a sender could relink the same list at the same time.
ZRCriticalSectionWrite::ZRCriticalSectionWrite(boost::shared_ptr<ZRMutexRW> mutex)
    : mutex_(std::move(mutex)) {
  check(pthread_mutex_lock(&static_cast<Lock&>(*mutex_).mutex));
}

// Must release the lock and must not throw: an exception here ends the process.
ZRCriticalSectionWrite::~ZRCriticalSectionWrite() {
  pthread_mutex_unlock(&static_cast<Lock&>(*mutex_).mutex);
}

}  // namespace ZR
