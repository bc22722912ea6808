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

/// What this machine grants this process. The system's files are sought below `root`,
/// which is empty for the system itself; what is missing there is unknown.
std::vector<Condition> diagnose(const std::string& root);

}  // namespace host
