#pragma once

#include <cstdint>

#include "host/engine/prioritymutex.h"

namespace host {

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
