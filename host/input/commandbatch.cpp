#include "host/input/commandbatch.h"

#include <algorithm>

namespace host {
namespace {

/// The points that the first round alone has.
std::size_t countAtStart(const std::vector<std::uint32_t>& times) {
  return static_cast<std::size_t>(std::upper_bound(times.begin(), times.end(), 0U) - times.begin());
}

}  // namespace

std::size_t CommandBatch::rowOf(std::uint64_t point) const {
  if (point < times.size()) {
    return point;
  }
  const std::size_t atStart = countAtStart(times);
  return atStart + (point - atStart) % (times.size() - atStart);
}

std::uint64_t CommandBatch::size() const {
  return times.empty() ? 0 : times.size() + (repeat - 1ULL) * (times.size() - countAtStart(times));
}

std::int64_t CommandBatch::lastMs() const {
  return times.empty() ? 0 : std::int64_t{repeat} * times.back();
}

const char* modeName(const CommandBatch& batch) {
  return batch.isStop ? "stop" : wordFor(modeWords, batch.mode);
}

}  // namespace host
