#include "host/base/attributekeys.h"

#include <fmt/format.h>
#include <fnmatch.h>

#include <algorithm>
#include <set>

#include "host/base/attributekey.h"
#include "host/base/closest.h"
#include "host/base/visible.h"
#include "platform/hal/attributecontainer.h"
#include "simulation/machine.h"

namespace host {
namespace {

/// Empty when the attribute has none.
std::string keyOf(const simulation::Observer& observer, int index) {
  const std::uint8_t kind = observer.containerKind(index);
  if (kind != hal::deviceKind && kind != hal::subDeviceKind) {
    return {};
  }
  return (kind == hal::deviceKind ? devicePrefix : subDevicePrefix) +
         observer.containerName(index) + "/" + observer.attributeName(index);
}

bool isPattern(const std::string& key) {
  return key.find_first_of("*?[") != std::string::npos;
}

}  // namespace

AttributeKeys::AttributeKeys(const simulation::Observer& observer) {
  for (int index = 0; index < observer.attributeCount(); ++index) {
    const std::string key = keyOf(observer, index);
    if (!key.empty()) {
      if (indexes_.count(key) == 0) {
        keys_.push_back(key);
      }
      indexes_[key] = index;  // of equal keys, the last one counts
    }
  }
  for (const auto& [key, index] : indexes_) {
    byIndex_.emplace(index, key);
  }
}

std::vector<int> AttributeKeys::find(const std::vector<std::string>& wanted) const {
  std::vector<int> found;
  std::set<int> taken;
  const auto take = [&](int index) {
    if (taken.insert(index).second) {
      found.push_back(index);
    }
  };
  for (const std::string& key : wanted.empty() ? keys_ : wanted) {
    const auto exact = indexes_.find(fullKey(key));
    if (exact != indexes_.end()) {
      take(exact->second);
      continue;
    }
    const std::vector<int> matches = isPattern(key) ? matching(key) : std::vector<int>();
    if (matches.empty()) {
      refuse(key);
    }
    for (const int index : matches) {
      take(index);
    }
  }
  return found;
}

std::vector<int> AttributeKeys::matching(const std::string& pattern) const {
  const auto matches = [&pattern](const std::string& key) {
    return fnmatch(pattern.c_str(), key.c_str(), 0) == 0;
  };
  const std::string bare = subDevicePrefix;
  std::vector<int> found;
  for (const std::string& key : keys_) {
    if (matches(key) || (key.rfind(bare, 0) == 0 && matches(key.substr(bare.size())))) {
      found.push_back(indexes_.at(key));
    }
  }
  return found;
}

void AttributeKeys::refuse(const std::string& key) const {
  if (isPattern(key)) {
    throw simulation::Error(fmt::format("the machine has no attribute like '{}'", visible(key)));
  }
  std::vector<std::string> known;
  std::vector<std::string> ending;
  for (const std::string& one : keys_) {
    const std::size_t begin = one.size() - std::min(one.size(), key.size() + 1);
    if (one.compare(begin, std::string::npos, "/" + key) == 0) {
      ending.push_back(one);
    }
    const bool isBare = key.rfind("Device/", 0) != 0 && one.rfind(subDevicePrefix, 0) == 0;
    known.push_back(isBare ? one.substr(sizeof subDevicePrefix - 1) : one);
  }
  const std::string meant = ending.size() == 1
                                ? fmt::format("; did you mean '{}'?", visible(ending.front()))
                                : didYouMean(key, known);
  throw simulation::Error(fmt::format("the machine has no attribute '{}'{}", visible(key), meant));
}

}  // namespace host
