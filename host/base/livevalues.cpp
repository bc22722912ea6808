#include "host/base/livevalues.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "host/base/clocks.h"
#include "host/base/visible.h"

namespace host {

LiveValues::LiveValues(const simulation::Observer& observer, const AttributeKeys& known,
                       const std::vector<std::string>& keys)
    : observer_(observer) {
  for (const int index : known.find(keys)) {
    attributes_.push_back({index, known.key(index)});
  }
  look();
}

std::optional<std::int64_t> LiveValues::ageMs() const {
  if (cycle_.number == 0) {
    return std::nullopt;
  }
  return std::max<std::int64_t>((wallNs() - cycle_.wallTimeNs) / nsPerMs, 0);
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
      lines += fmt::format("{:.3f} {} {}\n", inSeconds(timeMs), visible(values_.key(i)), present);
      last_[i] = std::move(present);
    }
  }
  return lines;
}

Json LiveValues::json() const {
  Json::object_t members;
  for (std::size_t i = 0; i < size(); ++i) {
    members.push_back({key(i), value(i)});  // no key twice
  }
  return members;
}

std::string jsonLine(const LiveValues& values, std::int64_t timeMs) {
  const std::optional<std::int64_t> ageMs = values.ageMs();
  return printed({{"time_ms", timeMs},
                  {"cycle", values.cycle().number},
                  {"machine_ms", values.cycle().machineTimeMs},
                  {"age_ms", ageMs ? Json(*ageMs) : Json()},
                  {"whole", values.cycle().isWhole},
                  {"values", values.json()}},
                 -1) +
         "\n";
}

}  // namespace host
