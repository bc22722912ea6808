#pragma once

#include <string>
#include <vector>

namespace host {

enum class Rating { good, poor, unknown };

/// One thing that decides how punctual cycles are.
struct Condition {
  std::string what;
  std::string found;
  Rating rating = Rating::unknown;
  /// What to do about it; empty when it is good.
  std::string advice;
};

/// What this machine grants this process. Reads the system's files below `root`, which is
/// empty for the system itself; what a missing file would tell is unknown.
std::vector<Condition> diagnose(const std::string& root);

}  // namespace host
