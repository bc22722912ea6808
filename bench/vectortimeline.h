#pragma once

#include <mutex>
#include <vector>

#include "bench/rig.h"
#include "platform/hal/subdeviceaccessor.h"
#include "timedcommand/timedcommand.h"

namespace bench {

/// What one would write instead of a timeline: a sorted vector and a mutex.
class VectorTimeline {
 public:
  using Point = TimedCommand::commandItem;

  /// What a push does with points that are in order already.
  enum class Sorting { always, whenNeeded };

  VectorTimeline(hal::SubDeviceAccessor actuator, Interpolation interpolation)
      : actuator_(actuator), interpolation_(interpolation) {}

  /// The modes of a timeline. Sorts `points`.
  void push(std::vector<Point>& points, TimedCommand::commandType type, Sorting sorting);
  void run(unsigned int time, unsigned int previousTime);
  void clear() { points_.clear(); }

 private:
  void trim(const std::vector<Point>& points, TimedCommand::commandType type);
  void follow(unsigned int time, unsigned int previousTime);
  void takeStep(unsigned int time);
  void write(float value);

  std::mutex mutex_;
  std::vector<Point> points_;
  hal::SubDeviceAccessor actuator_;
  float current_ = 0.0F;
  Interpolation interpolation_;
};

}  // namespace bench
