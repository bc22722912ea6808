#include "host/movedactuator.h"

#include <algorithm>
#include <cmath>
#include <map>

namespace host {
namespace {

/// What measures each actuator that has a sensor of its name.
std::map<std::string, const hal::DeviceAttrGeneric*> sensorsByName(
    const MachineFile& machine, const simulation::Machine& simulated) {
  std::map<std::string, const hal::DeviceAttrGeneric*> values;
  int index = 0;
  for (const simulation::Sensor& sensor : machine.description.sensors) {
    values.emplace(sensor.name, &simulated.sensorValue(index++));
  }
  return values;
}

/// The linear law limits what it writes.
std::optional<double> finalTarget(const Course& course, const simulation::Actuator& actuator) {
  if (course.stopsOnTheWay) {
    return std::nullopt;
  }
  const double last = course.path.back().value;
  return actuator.interpolates
             ? std::clamp(last, double{actuator.minimum}, double{actuator.maximum})
             : last;
}

}  // namespace

double MovedActuator::commanded() const {
  return numberIn(*command);
}

std::optional<double> MovedActuator::measuredValue() const {
  return measured == nullptr ? std::nullopt : std::optional(numberIn(*measured));
}

double MovedActuator::trackingError() const {
  return measured == nullptr ? 0.0 : std::abs(numberIn(*measured) - commanded());
}

double numberIn(const hal::DeviceAttrGeneric& attribute) {
  return attribute.typeCode == hal::floatTypeCode ? double{attribute.loadFloat()}
                                                  : static_cast<double>(bitsIn(attribute));
}

std::int32_t bitsIn(const hal::DeviceAttrGeneric& attribute) {
  std::int32_t bits = 0;
  __atomic_load(&attribute.value.asInt, &bits, __ATOMIC_RELAXED);
  return bits;
}

std::vector<MovedActuator> movedActuators(const MachineFile& machine, const Plan& plan,
                                          const simulation::Machine& simulated) {
  const auto sensors = sensorsByName(machine, simulated);
  std::vector<MovedActuator> moved;
  for (const PlannedActuator& planned : plan.actuators) {
    const int index = planned.index;
    const simulation::Actuator& actuator = machine.actuator(index);
    MovedActuator added;
    added.name = actuator.name;
    added.index = index;
    added.command = &simulated.actuatorValue(index);
    const auto sensor = sensors.find(actuator.name + "/Sensor");
    added.measured = sensor == sensors.end() ? nullptr : sensor->second;
    added.minimum = actuator.minimum;
    added.maximum = actuator.maximum;
    added.finalTarget = finalTarget(planned.course, actuator);
    added.lastBits = bitsIn(*added.command);
    moved.push_back(std::move(added));
  }
  return moved;
}

std::vector<TracedColumn> tracedColumns(std::vector<MovedActuator>& actuators) {
  std::vector<TracedColumn> columns;
  for (MovedActuator& actuator : actuators) {
    actuator.commandColumn = columns.size();
    columns.push_back({actuator.name + "/command", actuator.command});
    if (actuator.measured != nullptr) {
      actuator.measuredColumn = columns.size();
      columns.push_back({actuator.name + "/measured", actuator.measured});
    }
  }
  return columns;
}

}  // namespace host
