#include "host/engine/prioritymutex.h"

#include <system_error>

namespace host {
namespace {

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

}  // namespace host
