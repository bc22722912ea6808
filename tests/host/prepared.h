#pragma once

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "host/motion/plan.h"
#include "host/results/runoptions.h"
#include "tests/support/temporary.h"

/// A machine of some joints and a motion of some points for it, in simulated time.
struct Prepared {
  Temporary temporary;
  host::MachineModel machine;
  std::vector<host::CommandBatch> batches{1};
  host::RunOptions options;

  Prepared(int joints, int points, std::uint32_t stepMs) {
    for (int i = 0; i < joints; ++i) {
      simulation::Actuator actuator;
      actuator.name = "j" + std::to_string(i);
      actuator.minimum = -2.0F;
      actuator.maximum = 2.0F;
      machine.description.actuators.push_back(actuator);
      simulation::Sensor sensor;
      sensor.name = actuator.name + "/Sensor";
      sensor.actuator = i;
      machine.description.sensors.push_back(sensor);
      batches[0].actuators.push_back(i);
    }
    for (int point = 0; point < points; ++point) {
      batches[0].times.push_back(stepMs * static_cast<std::uint32_t>(point));
      batches[0].locations.emplace_back();
      for (int i = 0; i < joints; ++i) {
        batches[0].values.emplace_back(std::sin(0.05F * static_cast<float>(point + i)));
      }
    }
    options.session.clock = host::Clock::simulated;
    options.session.poolName = temporary.pool();
  }

  [[nodiscard]] host::Plan plan() const { return host::planRun(machine, batches, options.timing); }
};
