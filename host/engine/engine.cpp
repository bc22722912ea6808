#include "host/engine/engine.h"

#include <map>
#include <mutex>

namespace host {

Engine::Engine(const MachineModel& machine, std::int64_t cycleMs, const EngineOptions& options,
               Torvex* host)
    : startTick_(options.startTick),
      machine_(options.poolName, machine.description, options.poolMode),
      framework_(options.preferenceDirectory),
      library_(framework_.broker(), host),
      guard_(options.guard),
      pacer_(cycleMs, options.late),
      streamer_(axes_, gate_, cycles_, teller_, journal_, cycleMs, options.startTick),
      desk_(streamer_, teller_, journal_, machine, cycleMs) {
  cycles_.latestMs = pacer_.timeMs();
  addAxes(machine, cycleMs);
}

void Engine::addAxes(const MachineModel& machine, std::int64_t cycleMs) {
  std::map<std::string, const hal::DeviceAttrGeneric*> sensors;
  int number = 0;
  for (const simulation::Sensor& sensor : machine.description.sensors) {
    sensors.emplace(sensor.name, &machine_.sensorValue(number++));
  }
  for (const simulation::Actuator& actuator : machine.description.actuators) {
    const auto index =
        static_cast<std::size_t>(library_.commands.testActuatorName(valueKey(actuator)));
    const auto sensor = sensors.find(actuator.name + "/Sensor");
    const int position = static_cast<int>(axes_.size());
    Axis& axis = axes_.emplace_back(
        position, machine, cycleMs, library_.commands.commandTable.at(index),
        machine_.actuatorValue(position), sensor == sensors.end() ? nullptr : sensor->second);
    registers_.push_back({axis.command, bitsIn(*axis.command), bitsIn(*axis.command), &axis});
  }
  for (const Register& written : registers_) {
    Axis& axis = *written.axis;
    axis.written = &written;
    guard_.add(machine, axis.index, *axis.timeline->deviceAttr, written.firstBits, axis.guard);
  }
}

void Engine::addJournalKeeper(JournalKeeper& keeper) {
  journal_.addKeeper(keeper);
  streamer_.keepWrites();
}

void Engine::follow(const JournalEntry& entry) {
  switch (entry.kind) {
    case JournalEntry::Kind::hold:
    case JournalEntry::Kind::release:
    case JournalEntry::Kind::enrol:
    case JournalEntry::Kind::lose:
      desk_.follow(entry);
      break;
    default:
      streamer_.follow(entry);
  }
}

std::int64_t Engine::goOn() {
  const std::lock_guard hold(gate_);
  const std::int64_t boundMs = streamer_.boundMs();
  const std::int64_t stepMs = pacer_.stepMs(boundMs);
  const std::int64_t previousMs = pacer_.timeMs();
  pacer_.go(stepMs);
  if (pacer_.count().stands > cycles_.pace.stands) {
    cycles_.heldAtMs = boundMs;
  }
  cycles_.pace = pacer_.count();
  cycles_.lagMs = pacer_.lagMs();
  if (stepMs == 0) {
    return 0;
  }
  const std::int64_t timeMs = pacer_.timeMs();
  noteExternalWrites({timeMs, previousMs});
  cycles_.latestMs = timeMs;
  cycles_.log.add({timeMs, previousMs});
  machine_.beginCycle();
  library_.commands.run(stamp(timeMs), stamp(previousMs));
  guard_.check(timeMs, stepMs);
  for (Register& written : registers_) {
    written.lastBits = bitsIn(*written.attribute);
  }
  return stepMs;
}

Engine::Now Engine::now() {
  const std::lock_guard hold(gate_);
  return {cycles_.latestMs, cycles_.lagMs, cycles_.pace};
}

void Engine::noteExternalWrites(const Cycle& cycle) noexcept {
  for (Register& written : registers_) {
    written.firstBits = bitsIn(*written.attribute);
    if (written.firstBits != written.lastBits) {
      Axis& axis = *written.axis;
      axis.externalWrites.store(axis.externalWrites.load(std::memory_order_relaxed) + 1,
                                std::memory_order_relaxed);
      axis.lastExternalMs = cycle.timeMs;
      if (cycles_.writes.size() < cycles_.writes.capacity()) {
        cycles_.writes.push_back({cycle.previousMs, axis.index, written.firstBits});
      } else {
        ++cycles_.lostWrites;
      }
    }
  }
}

}  // namespace host
