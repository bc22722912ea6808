#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "host/input/motion.h"

namespace host {

/// A command batch on its way to a machine: what to command, and when.
struct Batch {
  std::shared_ptr<const Motion> motion;
  /// Machine time in milliseconds from which it counts; none: as soon as it is taken.
  std::optional<std::int64_t> momentMs;
  /// Machine time in milliseconds that the times of its points count from.
  std::int64_t originMs = 0;
};

}  // namespace host
