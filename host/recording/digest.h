#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "host/recording/recordedrun.h"

namespace host {

/// What a recording comes to.
struct RecordingDigest {
  struct Joint {
    std::string name;
    /// The largest distance of what was measured from what was commanded, and when, in
    /// milliseconds of machine time.
    double worstError = 0.0;
    std::int64_t worstMs = 0;
  };

  RecordedRun run;
  std::uint64_t rows = 0;
  std::int64_t firstMs = 0;
  std::int64_t lastMs = 0;
  /// Machine time that no row covers.
  std::uint64_t gaps = 0;
  std::int64_t gapMs = 0;
  std::int64_t longestGapMs = 0;
  /// Those that are measured, in the order of the machine.
  std::vector<Joint> joints;
  /// How many events of each kind.
  std::map<std::string, std::uint64_t> events;
};

/// As `RecordedRun::read`.
RecordingDigest digestOf(const std::string& path);

}  // namespace host
