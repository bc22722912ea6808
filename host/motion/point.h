#pragma once

#include <cstdint>

#include "platform/hal/attrgeneric.h"

namespace host {

/// One point of a batch for one axis, as it is commanded.
struct Point {
  /// Machine time.
  std::int64_t timeMs = 0;
  /// Within the limits of the actuator.
  hal::AttrGeneric value;
  /// The number of its batch.
  std::uint32_t batch = 0;
  /// Its number among the batch's points.
  std::uint32_t index = 0;
  /// How many batches the backlog had taken when it took this one.
  std::uint32_t arrival = 0;
  /// The host made it, to bring the axis to rest: no user's, so counted and told of nowhere.
  bool isOfHost = false;

  [[nodiscard]] bool isSamePointAs(const Point& other) const {
    return batch == other.batch && index == other.index;
  }
};

}  // namespace host
