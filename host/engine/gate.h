#pragma once

#include <pthread.h>

#include <cstdint>

namespace host {

/// The lock between the cycle and whoever looks at timelines and pushes to them. The cycle
/// holds it around the library's pass; the command thread around looking and pushing, so
/// that no cycle comes in between.
///
/// Inherits priorities: the cycle waits no longer than the holder needs. Taken before the
/// lock of the timelines, never inside it. Throws `std::system_error` where it cannot be
/// made.
class Gate {
 public:
  Gate();
  ~Gate();

  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;

  void lock() noexcept { pthread_mutex_lock(&mutex_); }
  void unlock() noexcept { pthread_mutex_unlock(&mutex_); }

 private:
  pthread_mutex_t mutex_{};
};

/// Holds the gate while much is done, but lets a waiting cycle through whenever it has been
/// held for some 20 us. Call `breathe` where a cycle may run.
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
