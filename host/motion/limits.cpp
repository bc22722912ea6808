#include "host/motion/limits.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <variant>

namespace host {
namespace {

/// The limit as an integer; what lies beyond all integers is none.
std::int32_t wholeLimit(double limit) {
  constexpr double least = std::numeric_limits<std::int32_t>::min();
  constexpr double most = std::numeric_limits<std::int32_t>::max();
  return static_cast<std::int32_t>(std::clamp(limit, least, most));
}

}  // namespace

double commandedNumber(const simulation::Actuator& actuator, const hal::AttrGeneric& value) {
  return actuator.typeCode == hal::floatTypeCode ? double{value.asFloat}
                                                 : static_cast<double>(value.asInt);
}

hal::AttrGeneric initialRecord(const simulation::Actuator& actuator) {
  hal::AttrGeneric record;
  if (const auto* const integer = std::get_if<std::int32_t>(&actuator.value)) {
    record.asInt = *integer;
  } else {
    record.asFloat = std::get<float>(actuator.value);
  }
  return record;
}

bool isCommandable(const simulation::Actuator& actuator, const hal::AttrGeneric& value) {
  const double number = std::abs(commandedNumber(actuator, value));
  return std::isfinite(number) && (!actuator.interpolates || number <= double{mostInterpolated});
}

hal::AttrGeneric limited(const simulation::Actuator& actuator, const hal::AttrGeneric& value) {
  hal::AttrGeneric moved = value;
  if (actuator.typeCode == hal::floatTypeCode) {
    moved.asFloat = std::clamp(value.asFloat, static_cast<float>(actuator.minimum),
                               static_cast<float>(actuator.maximum));
  } else {
    const std::int32_t least = wholeLimit(std::ceil(actuator.minimum));
    const std::int32_t most = wholeLimit(std::floor(actuator.maximum));
    // Between two integers without one between them, the lower limit counts.
    moved.asInt = std::max(std::min(value.asInt, most), least);
  }
  return moved;
}

bool isSameValue(const hal::AttrGeneric& one, const hal::AttrGeneric& other) {
  // The widest member, so all bytes.
  return one.asTextOffset == other.asTextOffset;
}

double ulpOf(float one, float other) noexcept {
  const float larger = std::max(std::abs(one), std::abs(other));
  return double{std::nextafter(larger, std::numeric_limits<float>::infinity())} - double{larger};
}

}  // namespace host
