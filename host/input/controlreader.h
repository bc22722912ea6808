#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/input/pointreader.h"

namespace host {

/// What becomes of the axes of a commander that is lost.
enum class OnLoss { stop, runOut };

/// Who wants to own axes.
struct Registration {
  std::string name;
  /// Of actuators, in the order of the machine.
  std::vector<int> axes;
  int priority = 50;
  std::int64_t leaseMs = 1000;
  OnLoss onLoss = OnLoss::stop;
  bool endsWithConnection = false;
};

/// Reads the JSON of a registration. Throws `UserError`, as `readBatchRequest`.
Registration readRegistration(const std::string& text, const ActuatorNames& names);

/// The axes that the JSON of a hold or a release names; all without a body. Throws `UserError`.
std::vector<int> readAxes(const std::string& text, const ActuatorNames& names);

}  // namespace host
