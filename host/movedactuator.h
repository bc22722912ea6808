#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/course.h"
#include "host/plan.h"
#include "simulation/machine.h"
#include "timedcommand/timedcommand.h"

namespace host {

/// One commanded actuator, as the cycle sees it.
struct MovedActuator {
  std::string name;
  /// In the machine's description.
  int index = 0;
  const TimedCommand* timeline = nullptr;
  const hal::DeviceAttrGeneric* command = nullptr;
  /// Null when no sensor bears its name.
  const hal::DeviceAttrGeneric* measured = nullptr;
  float minimum = 0.0F;
  float maximum = 0.0F;
  /// Where the traced columns hold it.
  std::size_t commandColumn = 0;
  std::optional<std::size_t> measuredColumn;
  /// What it is to hold at the end; open when a list stops it on its way.
  std::optional<double> finalTarget;
  /// What the command register held at the end of the latest cycle.
  std::int32_t lastBits = 0;
  std::uint64_t cyclesMovedByOthers = 0;

  [[nodiscard]] double commanded() const;
  [[nodiscard]] std::optional<double> measuredValue() const;
  /// 0 without a sensor.
  [[nodiscard]] double trackingError() const;
};

/// A quantity that is written down every cycle.
struct TracedColumn {
  /// "NAME/command" or "NAME/measured".
  std::string name;
  const hal::DeviceAttrGeneric* attribute = nullptr;
};

/// The number that an integer or a float attribute holds. May be called in the
/// control cycle.
double numberIn(const hal::DeviceAttrGeneric& attribute);
/// The four bytes that hold it, which tell any two values apart.
std::int32_t bitsIn(const hal::DeviceAttrGeneric& attribute);

/// The actuators of a plan on a machine that was laid out in memory; `timeline`
/// is left open.
std::vector<MovedActuator> movedActuators(const MachineFile& machine, const Plan& plan,
                                          const simulation::Machine& simulated);

/// For each actuator its command and, where there is a sensor, what it measures.
/// Tells the actuators where they are.
std::vector<TracedColumn> tracedColumns(std::vector<MovedActuator>& actuators);

}  // namespace host
