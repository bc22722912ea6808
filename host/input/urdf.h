#pragma once

#include <string>

#include "host/input/machinemodel.h"

namespace host {

/// Reads the text of a URDF file. Only the joints count: names, types, limits,
/// mimicry. Actuator and sensor i belong to one joint; the sensors of mimic
/// joints follow. Throws `UserError`.
MachineModel readUrdf(const std::string& path, const std::string& text);

/// No URDF file may be longer.
constexpr std::size_t maxUrdfBytes = std::size_t{64} << 20;

}  // namespace host
