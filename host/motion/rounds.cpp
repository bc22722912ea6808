#include "host/motion/rounds.h"

#include <algorithm>
#include <utility>

namespace host {
namespace {

std::size_t findIn(const std::vector<Point>& points, std::int64_t timeMs) {
  const auto found =
      std::lower_bound(points.begin(), points.end(), timeMs,
                       [](const Point& point, std::int64_t time) { return point.timeMs < time; });
  return static_cast<std::size_t>(found - points.begin());
}

}  // namespace

Rounds::Rounds(std::vector<Point> first, std::uint32_t repeat, std::int64_t originMs)
    : first_(std::make_shared<const std::vector<Point>>(std::move(first))),
      repeat_(empty() ? 1 : repeat),
      originMs_(originMs) {
  if (isRepeated()) {
    periodMs_ = first_->back().timeMs - originMs_;
    skipped_ = findIn(*first_, originMs_ + 1);
    rises_ = std::adjacent_find(first_->begin(), first_->end(),
                                [](const Point& one, const Point& other) {
                                  return one.timeMs == other.timeMs;
                                }) == first_->end();
  }
}

std::uint64_t Rounds::size() const {
  return first_->size() + (repeat_ - 1) * sizeOfRound();
}

std::int64_t Rounds::lastMs() const {
  return first_->back().timeMs + (repeat_ - 1) * periodMs_;
}

Point Rounds::at(std::uint64_t position) const {
  if (position < first_->size()) {
    return (*first_)[position];
  }
  const std::uint64_t round = (position - skipped_) / sizeOfRound();
  Point point = (*first_)[position - round * sizeOfRound()];
  point.timeMs += static_cast<std::int64_t>(round) * periodMs_;
  point.index += static_cast<std::uint32_t>(round * sizeOfRound());
  return point;
}

std::uint64_t Rounds::findFirst(std::int64_t timeMs) const {
  if (!isRepeated() || timeMs <= first_->back().timeMs) {
    return findIn(*first_, timeMs);
  }
  if (timeMs > lastMs()) {
    return size();
  }
  const std::int64_t round = (timeMs - originMs_ - 1) / periodMs_;
  return findIn(*first_, timeMs - round * periodMs_) +
         static_cast<std::uint64_t>(round) * sizeOfRound();
}

}  // namespace host
