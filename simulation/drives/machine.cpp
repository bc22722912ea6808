#include "simulation/machine.h"

#include "simulation/devicepool/pool.h"
#include "simulation/drives/drives.h"

namespace simulation {

struct Machine::Parts {
  Parts(const std::string& poolName, const MachineDescription& description,
        std::optional<std::uint32_t> poolMode)
      : pool(poolName, description, poolMode) {
    int index = 0;
    for (const Sensor& sensor : description.sensors) {
      drives.add(sensor, pool.actuator(sensor.actuator), pool.sensor(index++));
    }
    drives.exchange(0.0);
    pool.publish();
  }

  Pool pool;
  Drives drives;
};

Machine::Machine(const std::string& poolName, const MachineDescription& description,
                 std::optional<std::uint32_t> poolMode) {
  if (hasCurrentPool()) {
    throw Error("this process has a simulated machine already");
  }
  parts_ = std::make_unique<Parts>(poolName, description, poolMode);
  setCurrentPool(&parts_->pool);
}

Machine::~Machine() {
  setCurrentPool(nullptr);
}

bool Machine::replacedLeftover() const {
  return parts_->pool.replacedLeftover();
}

void Machine::step(double seconds) noexcept {
  parts_->drives.exchange(seconds);
}

void Machine::beginCycle() noexcept {
  parts_->pool.beginCycle();
}

void Machine::endCycle(std::int64_t machineTimeMs) noexcept {
  parts_->pool.endCycle(machineTimeMs);
}

const hal::DeviceAttrGeneric& Machine::actuatorValue(int actuator) const {
  return *parts_->pool.actuator(actuator).value;
}

const hal::DeviceAttrGeneric& Machine::sensorValue(int sensor) const {
  return *parts_->pool.sensor(sensor).value;
}

void Machine::moveFromOutside(int actuator, float value) {
  SubDeviceRecord& moved = parts_->pool.actuator(actuator);
  if (moved.value->typeCode != hal::floatTypeCode) {
    throw Error(std::string("the value of actuator '") + moved.name.get() + "' is no float");
  }
  moved.value->storeFloat(value);
  __atomic_fetch_add(&moved.movedFromOutside, 1, __ATOMIC_RELAXED);
}

ActuatorCounters Machine::counters(int actuator) const {
  const SubDeviceRecord& counted = parts_->pool.actuator(actuator);
  return {__atomic_load_n(&counted.limited, __ATOMIC_RELAXED),
          __atomic_load_n(&counted.movedFromOutside, __ATOMIC_RELAXED)};
}

}  // namespace simulation
