#include "tests/support/mutexprotocol.h"

#include <dlfcn.h>
#include <pthread.h>

int latestProtocol = PTHREAD_PRIO_NONE;

extern "C" __attribute__((visibility("default"))) int pthread_mutex_init(
    pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) noexcept {
  static const auto next =
      reinterpret_cast<decltype(&pthread_mutex_init)>(dlsym(RTLD_NEXT, "pthread_mutex_init"));
  latestProtocol = PTHREAD_PRIO_NONE;
  if (attributes != nullptr) {
    pthread_mutexattr_getprotocol(attributes, &latestProtocol);
  }
  return next(mutex, attributes);
}
