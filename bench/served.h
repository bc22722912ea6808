#pragma once

#include <chrono>
#include <string>

#include "bench/child.h"

namespace bench {

/// A machine that `torvex serve` keeps alive in another process, with a cycle every millisecond and
/// without the guard, from construction to destruction.
class Served {
 public:
  /// Waits until its door answers. Throws what a client of the door throws when it does not.
  explicit Served(const std::string& machineText);

  [[nodiscard]] std::string socketPath() const { return folder_.path() + "/door/m.sock"; }
  [[nodiscard]] std::string poolName() const { return folder_.name(); }

 private:
  /// Writes the machine's file and names it.
  [[nodiscard]] std::string machineFile(const std::string& text) const;
  void awaitDoor() const;

  const TemporaryFolder folder_;
  const Child process_;
};

/// The time since then, in nanoseconds.
double nsSince(std::chrono::steady_clock::time_point begin);

}  // namespace bench
