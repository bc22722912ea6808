#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "host/input/commandbatch.h"

namespace host {

/// A command batch on its way to a machine: what to command, and when.
struct ScheduledBatch {
  std::shared_ptr<const CommandBatch> commands;
  /// Machine time in milliseconds from which it counts; none: as soon as it is taken.
  std::optional<std::int64_t> momentMs;
  /// Machine time in milliseconds that the times of its points count from.
  std::int64_t originMs = 0;
  Interpolation interpolation = Interpolation::message;
  /// Its first point is approached, from rest to rest.
  bool approaches = false;
  /// The origin counts from the first cycle that can still follow it, when it is taken.
  bool isRelative = false;
};

}  // namespace host
