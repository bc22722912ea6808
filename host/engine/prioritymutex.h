#pragma once

#include <pthread.h>

namespace host {

/// A lock that inherits priorities: who waits for it waits no longer than the holder needs.
/// Throws `std::system_error` where it cannot be made.
class PriorityMutex {
 public:
  PriorityMutex();
  ~PriorityMutex();

  PriorityMutex(const PriorityMutex&) = delete;
  PriorityMutex& operator=(const PriorityMutex&) = delete;

  void lock() noexcept { pthread_mutex_lock(&mutex_); }
  void unlock() noexcept { pthread_mutex_unlock(&mutex_); }

 private:
  pthread_mutex_t mutex_{};
};

}  // namespace host
