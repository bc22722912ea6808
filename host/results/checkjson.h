#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/results/findings.h"

namespace host {

/// What is known of motions without moving.
struct CheckOutcome {
  struct Counts {
    std::size_t batches = 0;
    /// Of all actuators together.
    std::size_t points = 0;
    std::size_t actuators = 0;
  };

  std::string machinePath;
  std::vector<std::string> motionPaths;
  std::uint32_t cycleMs = 0;
  /// The name of the machine; none when it could not be read.
  std::optional<std::string> machine;
  /// None when the motions could not be read.
  std::optional<Counts> counts;
  /// What was ignored, or stretched.
  std::vector<std::string> notes;
  std::vector<Stretched> stretched;
  std::vector<Finding> warnings;
  /// What a run would refuse.
  std::vector<Finding> errors;
};

/// The outcome of a check as one JSON object; `docs/check.schema.json` describes it.
std::string checkJson(const CheckOutcome& outcome);

}  // namespace host
