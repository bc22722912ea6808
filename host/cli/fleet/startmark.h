#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "host/cli/fleet/member.h"

namespace host {

/// What a machine told when the moment was chosen.
struct StartMark {
  std::int64_t zeroNs = 0;
  /// None once they were told of.
  std::optional<std::int64_t> overruns;
  int contradictions = 0;
  /// Whether it was told that it is silent since before the start.
  bool isSilenceSaid = false;
};

/// Why a machine cannot begin with the others; empty when it can. `mark` may be null: the moment is
/// not chosen yet.
std::string outOfStep(const Member::View& view, const StartMark* mark);

}  // namespace host
