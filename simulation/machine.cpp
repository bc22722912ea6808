#include "simulation/machine.h"

#include "simulation/pool.h"

namespace simulation {

Machine::Machine(const std::string& poolName, const MachineDescription& description) {
  if (hasCurrentPool()) {
    throw Error("this process has a simulated machine already");
  }
  pool_ = std::make_unique<Pool>(poolName, description);
  setCurrentPool(pool_.get());
}

Machine::~Machine() {
  setCurrentPool(nullptr);
}

bool Machine::replacedLeftover() const {
  return pool_->replacedLeftover();
}

void Machine::step(double seconds) noexcept {
  pool_->step(seconds);
}

const hal::DeviceAttrGeneric& Machine::actuatorValue(int actuator) const {
  return *pool_->actuator(actuator).value;
}

const hal::DeviceAttrGeneric& Machine::sensorValue(int sensor) const {
  return *pool_->sensor(sensor).value;
}

void Machine::moveFromOutside(int actuator, float value) {
  SubDeviceRecord& moved = pool_->actuator(actuator);
  if (moved.value->typeCode != hal::floatTypeCode) {
    throw Error(std::string("the value of actuator '") + moved.name.get() + "' is no float");
  }
  moved.value->storeFloat(value);
  __atomic_fetch_add(&moved.movedFromOutside, 1, __ATOMIC_RELAXED);
}

ActuatorCounters Machine::counters(int actuator) const {
  const SubDeviceRecord& counted = pool_->actuator(actuator);
  return {__atomic_load_n(&counted.limited, __ATOMIC_RELAXED),
          __atomic_load_n(&counted.movedFromOutside, __ATOMIC_RELAXED)};
}

}  // namespace simulation
