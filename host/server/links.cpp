#include "host/server/links.h"

#include <algorithm>

#include "host/base/clocks.h"
#include "host/server/access.h"

namespace host {

std::string Links::make(std::int64_t nowNs) {
  constexpr std::size_t most = 16;
  constexpr std::int64_t lifeNs = 600 * nsPerSecond;
  keys_.push_back({randomToken(), nowNs + lifeNs});
  if (keys_.size() > most) {
    keys_.pop_front();
  }
  return keys_.back().text;
}

bool Links::use(const std::string& key, std::int64_t nowNs) {
  const auto used = std::find_if(keys_.begin(), keys_.end(), [&](const Key& known) {
    return isSameSecret(known.text, key) && nowNs <= known.endsNs;
  });
  if (used == keys_.end()) {
    return false;
  }
  keys_.erase(used);
  return true;
}

}  // namespace host
