#include "bench/enginerig.h"

#include <cmath>
#include <numeric>
#include <stdexcept>
#include <string>
#include <utility>

#include "bench/nodes.h"

namespace bench {

namespace {

host::MachineModel describe(std::size_t axes) {
  // The engine lays out its nodes in a pool as a new process has it.
  emptyNodePool();
  host::MachineModel machine;
  for (std::size_t i = 0; i < axes; ++i) {
    simulation::Actuator actuator;
    actuator.name = "Joint" + std::to_string(i);
    simulation::Sensor sensor;
    sensor.name = actuator.name + "/Sensor";
    sensor.actuator = static_cast<int>(i);
    machine.description.actuators.push_back(actuator);
    machine.description.sensors.push_back(sensor);
  }
  return machine;
}

host::EngineOptions options(host::GuardMode guard) {
  host::EngineOptions chosen;
  chosen.guard = guard;
  return chosen;
}

}  // namespace

std::vector<int> firstAxes(std::size_t count) {
  std::vector<int> axes(count);
  std::iota(axes.begin(), axes.end(), 0);
  return axes;
}

MotionPointer motionOf(const std::vector<int>& axes, std::size_t points, std::uint32_t stepMs,
                       TimedCommand::commandType mode) {
  auto motion = std::make_shared<host::CommandBatch>();
  motion->mode = mode;
  motion->actuators = axes;
  motion->times.reserve(points);
  motion->locations.reserve(points);
  motion->values.reserve(points * axes.size());
  for (std::size_t point = 1; point <= points; ++point) {
    motion->times.push_back(stepMs * static_cast<std::uint32_t>(point));
    motion->locations.emplace_back();
    for (std::size_t i = 0; i < axes.size(); ++i) {
      motion->values.emplace_back(std::sin(0.1F * static_cast<float>(point + i)));
    }
  }
  return motion;
}

MotionPointer curvedMotionOf(const std::vector<int>& axes, std::size_t points, std::uint32_t stepMs,
                             TimedCommand::commandType mode) {
  auto motion = std::make_shared<host::CommandBatch>(*motionOf(axes, points, stepMs, mode));
  for (std::size_t point = 1; point <= points; ++point) {
    for (std::size_t i = 0; i < axes.size(); ++i) {
      motion->velocities.push_back(100.0F / static_cast<float>(stepMs) *
                                   std::cos(0.1F * static_cast<float>(point + i)));
    }
  }
  return motion;
}

EngineRig::EngineRig(std::size_t axes, host::GuardMode guard)
    : machine_(describe(axes)), engine(machine_, 1, options(guard)) {
  engine.start();
}

void EngineRig::submit(MotionPointer motion, std::int64_t originMs) {
  if (!engine.submit({std::move(motion), std::nullopt, originMs})) {
    throw std::length_error("the inbox is full");
  }
}

void EngineRig::wake() {
  engine.wake(++clockCycle_);
  while (!engine.canGoOn()) {
    engine.pass();
  }
}

void EngineRig::cycle() {
  wake();
  engine.goOn();
  engine.pass();
}

}  // namespace bench
