#include "bench/vectortimeline.h"

#include <algorithm>

namespace bench {

namespace {

int difference(unsigned int a, unsigned int b) {
  return static_cast<int>(a - b);
}

constexpr auto byTime = [](const VectorTimeline::Point& one, const VectorTimeline::Point& other) {
  return difference(one.time, other.time) < 0;
};

}  // namespace

void VectorTimeline::push(std::vector<Point>& points, TimedCommand::commandType type,
                          Sorting sorting) {
  if (sorting == Sorting::always || !std::is_sorted(points.begin(), points.end(), byTime)) {
    std::sort(points.begin(), points.end(), byTime);
  }
  const std::lock_guard<std::mutex> section(mutex_);
  trim(points, type);
  const auto queued = static_cast<std::vector<Point>::difference_type>(points_.size());
  points_.insert(points_.end(), points.begin(), points.end());
  std::inplace_merge(points_.begin(), points_.begin() + queued, points_.end(), byTime);
}

void VectorTimeline::trim(const std::vector<Point>& points, TimedCommand::commandType type) {
  if (type == TimedCommand::REPLACE) {
    points_.clear();
  }
  if (type == TimedCommand::CLEAR_AFTER) {
    points_.erase(std::lower_bound(points_.begin(), points_.end(), points.front(), byTime),
                  points_.end());
  }
  if (type == TimedCommand::CLEAR_BEFORE) {
    points_.erase(points_.begin(),
                  std::upper_bound(points_.begin(), points_.end(), points.back(), byTime));
  }
}

void VectorTimeline::run(unsigned int time, unsigned int previousTime) {
  const std::lock_guard<std::mutex> section(mutex_);
  if (points_.empty()) {
    return;
  }
  if (interpolation_ == Interpolation::linear) {
    follow(time, previousTime);
  } else {
    takeStep(time);
  }
}

void VectorTimeline::follow(unsigned int time, unsigned int previousTime) {
  if (!(actuator_.getValueFloat() == current_)) {
    current_ = actuator_.getValueFloat();
  }
  const Point next = points_.front();
  if (difference(time, next.time) >= 0) {
    points_.erase(points_.begin());
    write(next.value.asFloat);
    return;
  }
  const auto elapsed = static_cast<float>(difference(time, previousTime));
  const auto span = static_cast<float>(difference(next.time, previousTime));
  write(elapsed * (next.value.asFloat - current_) / span + current_);
}

void VectorTimeline::takeStep(unsigned int time) {
  if (difference(time, points_.front().time) >= 0) {
    write(points_.front().value.asFloat);
    points_.erase(points_.begin());
  }
}

void VectorTimeline::write(float value) {
  current_ = actuator_.limitMinMaxFloat(value);
  actuator_.setValueFloat(current_);
}

}  // namespace bench
