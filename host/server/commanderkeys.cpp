#include "host/server/commanderkeys.h"

#include <algorithm>

#include "host/server/access.h"

namespace host {

std::string CommanderKeys::give(CommanderId commander) {
  constexpr std::size_t digits = 32;
  std::string key = randomToken().substr(0, digits);
  const std::lock_guard lock(mutex_);
  commanders_[key] = commander;
  return key;
}

CommanderId CommanderKeys::find(const std::string& key) const {
  const std::lock_guard lock(mutex_);
  const auto found = commanders_.find(key);
  return found == commanders_.end() ? nobody : found->second;
}

void CommanderKeys::forget(CommanderId commander) {
  const std::lock_guard lock(mutex_);
  const auto found = std::find_if(commanders_.begin(), commanders_.end(),
                                  [&](const auto& known) { return known.second == commander; });
  if (found != commanders_.end()) {
    commanders_.erase(found);
  }
}

}  // namespace host
