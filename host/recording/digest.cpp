#include "host/recording/digest.h"

#include <algorithm>
#include <cmath>

#include "host/engine/samplehistory.h"

namespace host {
namespace {

void noteTime(std::int64_t timeMs, std::int64_t cycleMs, RecordingDigest& digest) {
  const std::int64_t gapMs = digest.rows == 0 ? 0 : timeMs - digest.lastMs - cycleMs;
  if (gapMs > 0) {
    ++digest.gaps;
    digest.gapMs += gapMs;
    digest.longestGapMs = std::max(digest.longestGapMs, gapMs);
  }
  if (digest.rows++ == 0) {
    digest.firstMs = timeMs;
  }
  digest.lastMs = timeMs;
}

}  // namespace

RecordingDigest digestOf(const std::string& path) {
  RecordingDigest digest;
  std::vector<RecordedAxis> measured;
  std::int64_t cycleMs = 0;
  RecordedRun::Handler handler;
  handler.head = [&](const RecordingHead& head) {
    cycleMs = head.cycleMs;
    for (const RecordedAxis& axis : head.axes) {
      if (axis.measuredColumn) {
        measured.push_back(axis);
        digest.joints.push_back({axis.actuator.name});
      }
    }
  };
  handler.row = [&](const std::vector<double>& row) {
    noteTime(static_cast<std::int64_t>(row[0]), cycleMs, digest);
    for (std::size_t i = 0; i < measured.size(); ++i) {
      const double error = std::abs(row[rowTimes + *measured[i].measuredColumn] -
                                    row[rowTimes + measured[i].commandColumn]);
      if (error > digest.joints[i].worstError) {
        digest.joints[i].worstError = error;
        digest.joints[i].worstMs = digest.lastMs;
      }
    }
  };
  handler.event = [&](const Json& event) {
    const auto kind = event.find("kind");
    ++digest.events[kind != event.end() && kind->is_string() ? kind->get<std::string>() : "?"];
  };
  digest.run = RecordedRun::read(path, handler);
  return digest;
}

}  // namespace host
