#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <vector>

#include "host/input/commandbatch.h"

namespace host {

/// Keeps the order in which stops, holds and batches came in: a batch takes long to read, a stop
/// does not. Any thread.
class StopTickets {
 public:
  /// For what comes in now.
  [[nodiscard]] std::uint64_t ticket() const;
  /// Asks for a stop of these axes, which came in now. `ask` waits for nothing.
  void note(const std::vector<int>& axes, const std::function<void()>& ask);
  /// Asks for batches that came in when the ticket was given, unless an axis of theirs was stopped
  /// since then: then returns the number of the first such batch.
  [[nodiscard]] std::optional<std::size_t> unlessStopped(
      std::uint64_t ticket, const std::vector<const CommandBatch*>& batches,
      const std::function<void()>& ask);

 private:
  /// Held while the desk is asked, so that nothing comes in between.
  mutable std::mutex mutex_;
  std::uint64_t stops_ = 0;
  /// By axis, the latest one.
  std::map<int, std::uint64_t> stopOf_;
};

}  // namespace host
