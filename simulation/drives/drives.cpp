#include "simulation/drives/drives.h"

#include <algorithm>
#include <cmath>

namespace simulation {
namespace {

double numberIn(const hal::DeviceAttrGeneric& attribute) {
  hal::AttrGeneric value;
  __atomic_load(&attribute.value, &value, __ATOMIC_RELAXED);
  return attribute.typeCode == hal::floatTypeCode ? static_cast<double>(value.asFloat)
                                                  : static_cast<double>(value.asInt);
}

}  // namespace

void Drives::add(const Sensor& description, SubDeviceRecord& actuator, SubDeviceRecord& sensor) {
  drives_.push_back({&actuator, &sensor, description, numberIn(*actuator.value)});
}

void Drives::exchange(double seconds) noexcept {
  for (Drive& drive : drives_) {
    const double command = numberIn(*drive.actuator->value);
    if (std::isfinite(command)) {
      const double lag = -std::expm1(-seconds / drive.description.timeConstant);
      const double reach =
          static_cast<double>(drive.actuator->maximumVelocity->loadFloat()) * seconds;
      const double wanted = (command - drive.position) * lag;
      drive.position += seconds > 0 ? std::clamp(wanted, -reach, reach) : 0.0;
    }
    drive.sensor->value->storeFloat(static_cast<float>(drive.position) *
                                        drive.description.multiplier +
                                    drive.description.offset);
  }
}

}  // namespace simulation
