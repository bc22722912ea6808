#include "host/engine/gate.h"

#include <system_error>

#include "host/engine/wallclock.h"

namespace host {
namespace {

constexpr std::int64_t longestHoldNs = 20'000;

void require(int failure) {
  if (failure != 0) {
    throw std::system_error(failure, std::generic_category(), "a lock cannot be made");
  }
}

}  // namespace

PriorityMutex::PriorityMutex() {
  pthread_mutexattr_t attributes;
  require(pthread_mutexattr_init(&attributes));
  pthread_mutexattr_setprotocol(&attributes, PTHREAD_PRIO_INHERIT);
  const int failure = pthread_mutex_init(&mutex_, &attributes);
  pthread_mutexattr_destroy(&attributes);
  require(failure);
}

PriorityMutex::~PriorityMutex() {
  pthread_mutex_destroy(&mutex_);
}

GateHold::GateHold(Gate& gate) : gate_(gate) {
  gate_.lock();
  sinceNs_ = wallNs();
}

void GateHold::breathe() {
  if (wallNs() - sinceNs_ > longestHoldNs) {
    gate_.unlock();
    gate_.lock();
    sinceNs_ = wallNs();
  }
}

}  // namespace host
