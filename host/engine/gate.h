#pragma once

#include <pthread.h>

#include <cstdint>

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

/// The lock between the cycle and the command thread. The cycle holds it around the library's
/// pass; the command thread holds it from a look at timelines to the push that follows, so that
/// no cycle runs in between. Taken before the lock of the timelines, never inside it.
class Gate : public PriorityMutex {};

/// Holds the gate for a long piece of work, but yields it to a waiting cycle every 20 us or so:
/// in `breathe`, which is called wherever a cycle may run.
class GateHold {
 public:
  explicit GateHold(Gate& gate);
  ~GateHold() { gate_.unlock(); }

  GateHold(const GateHold&) = delete;
  GateHold& operator=(const GateHold&) = delete;

  void breathe();

 private:
  Gate& gate_;
  std::int64_t sinceNs_;
};

}  // namespace host
