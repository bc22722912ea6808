#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "host/motion/event.h"

namespace host {

/// What became of the points of each actuator, as far as a picture can show it.
class RunLog : public Listener {
 public:
  struct Dot {
    /// Machine time.
    std::int64_t timeMs = 0;
    hal::AttrGeneric value;
  };
  struct AxisLog {
    std::vector<Dot> reached;
    std::vector<Dot> cleared;
    /// Of all points, those that were moved into the limits.
    std::vector<Dot> limited;
    /// How many there were; beyond `mostDots` they are only counted.
    std::uint64_t dots = 0;
    /// In the order of their hand-overs.
    std::vector<std::uint32_t> batches;
  };

  /// More dots would be a cloud that hides the curve.
  static constexpr std::uint64_t mostDots = 400;
  static constexpr std::size_t mostBatches = 1000;

  void tell(const Event& event, const Point* points) override;

  [[nodiscard]] const AxisLog& of(int actuator) const;

 private:
  std::map<int, AxisLog> axes_;
};

}  // namespace host
