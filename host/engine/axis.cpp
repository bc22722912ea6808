#include "host/engine/axis.h"

#include <cmath>

namespace host {

double Axis::commanded() const {
  return numberIn(*command);
}

std::optional<double> Axis::measuredValue() const {
  return measured == nullptr ? std::nullopt : std::optional(numberIn(*measured));
}

double Axis::trackingError() const {
  return measured == nullptr ? 0.0 : std::abs(numberIn(*measured) - commanded());
}

double numberIn(const hal::DeviceAttrGeneric& attribute) {
  return attribute.typeCode == hal::floatTypeCode ? double{attribute.loadFloat()}
                                                  : static_cast<double>(bitsIn(attribute));
}

std::int32_t bitsIn(const hal::DeviceAttrGeneric& attribute) {
  hal::AttrGeneric present;
  __atomic_load(&attribute.value, &present, __ATOMIC_RELAXED);
  return present.asInt;
}

}  // namespace host
