#pragma once

#include <map>
#include <mutex>
#include <string>

#include "host/engine/request.h"

namespace host {

/// What commanders show that they are who they say: their numbers anyone may know. Any thread.
class CommanderKeys {
 public:
  /// A new key for this commander, which nobody can guess.
  std::string give(CommanderId commander);
  /// `nobody` where there is none of this key.
  [[nodiscard]] CommanderId find(const std::string& key) const;
  void forget(CommanderId commander);

 private:
  mutable std::mutex mutex_;
  std::map<std::string, CommanderId> commanders_;
};

}  // namespace host
