#include "host/cli/livevalues.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

#include "host/base/attributekey.h"
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

[[noreturn]] void refuse(const std::string& key, const std::map<std::string, int>& indexes) {
  const auto near = indexes.lower_bound(key);
  const std::string example =
      near == indexes.end() ? "" : fmt::format(", but for example '{}'", visible(near->first));
  throw simulation::Error(
      fmt::format("the machine has no attribute '{}'{}; without a KEY, all are "
                  "watched",
                  visible(key), example));
}

}  // namespace

LiveValues::LiveValues(const simulation::Observer& observer, const std::vector<std::string>& keys)
    : observer_(observer) {
  std::map<std::string, int> indexes;
  std::vector<std::string> wanted = keys;
  for (int index = 0; index < observer.attributeCount(); ++index) {
    const std::string key = keyOf(observer, index);
    if (!key.empty()) {
      indexes[key] = index;  // of equal keys, the last one counts
      if (keys.empty()) {
        wanted.push_back(key);
      }
    }
  }
  std::set<int> taken;
  for (const std::string& key : wanted) {
    const auto found = indexes.find(fullKey(key));
    if (found == indexes.end()) {
      refuse(fullKey(key), indexes);
    }
    if (taken.insert(found->second).second) {
      attributes_.push_back({found->second, found->first});
    }
  }
  look();
}

std::optional<std::int64_t> LiveValues::ageMs() const {
  if (cycle_.number == 0) {
    return std::nullopt;
  }
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const std::int64_t ageNs = now / std::chrono::nanoseconds(1) - cycle_.wallTimeNs;
  constexpr std::int64_t nsPerMs = 1'000'000;
  return std::max<std::int64_t>(ageNs / nsPerMs, 0);
}

Json LiveValues::value(std::size_t position) const {
  const int index = attributes_[position].index;
  const hal::AttrGeneric present = cycle_.values[static_cast<std::size_t>(index)];
  switch (valueType(observer_.typeCode(index))) {
    case ValueType::integer:
      return present.asInt;
    case ValueType::real:
      return present.asFloat;
    case ValueType::text:
      return present.asTextOffset == 0 ? Json() : Json(observer_.text(present));
    case ValueType::none:
      break;
  }
  return nullptr;
}

std::string LiveValues::shownValue(std::size_t position) const {
  return shown(value(position));
}

ValueLines::ValueLines(const LiveValues& values) : values_(values), last_(values.size()) {}

std::string ValueLines::changed(std::int64_t timeMs) {
  std::string lines;
  for (std::size_t i = 0; i < values_.size(); ++i) {
    std::string present = values_.shownValue(i);
    if (present != last_[i]) {
      lines += fmt::format("{:.3f} {} {}\n", static_cast<double>(timeMs) / 1000.0,
                           visible(values_.key(i)), present);
      last_[i] = std::move(present);
    }
  }
  return lines;
}

std::string jsonLine(const LiveValues& values, std::int64_t timeMs) {
  Json::object_t members;
  for (std::size_t i = 0; i < values.size(); ++i) {
    members.push_back({values.key(i), values.value(i)});  // no key twice
  }
  const std::optional<std::int64_t> ageMs = values.ageMs();
  return printed({{"time_ms", timeMs},
                  {"cycle", values.cycle().number},
                  {"machine_ms", values.cycle().machineTimeMs},
                  {"age_ms", ageMs ? Json(*ageMs) : Json()},
                  {"whole", values.cycle().isWhole},
                  {"values", std::move(members)}},
                 -1) +
         "\n";
}

}  // namespace host
