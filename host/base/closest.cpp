#include "host/base/closest.h"

#include <algorithm>
#include <numeric>

#include "host/base/visible.h"

namespace host {
namespace {

constexpr std::size_t longestText = 200;

/// How many letters are to be put in, left out or replaced: by dynamic programming, where
/// `costs[i]` turns the letters of `to` so far into the first `i` of `from`.
std::size_t editDistance(const std::string& from, const std::string& to) {
  std::vector<std::size_t> costs(from.size() + 1);
  std::iota(costs.begin(), costs.end(), std::size_t{0});
  for (const char letter : to) {
    std::size_t diagonal = costs[0]++;
    for (std::size_t i = 1; i <= from.size(); ++i) {
      const std::size_t replaced = diagonal + (from[i - 1] == letter ? 0 : 1);
      diagonal = costs[i];
      costs[i] = std::min({costs[i] + 1, costs[i - 1] + 1, replaced});
    }
  }
  return costs.back();
}

}  // namespace

std::string didYouMean(const std::string& text, const std::vector<std::string>& known) {
  const std::string* nearest = nullptr;
  std::size_t least = text.size() / 3 + 2;
  for (const std::string& candidate : known) {
    if (text.size() > longestText || candidate.size() > longestText) {
      continue;
    }
    const std::size_t distance = editDistance(text, candidate);
    if (distance < least) {
      least = distance;
      nearest = &candidate;
    }
  }
  return nearest == nullptr ? std::string() : "; did you mean '" + visible(*nearest) + "'?";
}

}  // namespace host
