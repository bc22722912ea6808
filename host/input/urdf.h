#pragma once

#include <string>

#include "host/input/machinedraft.h"

namespace host {

/// Reads the text of a URDF file. Only the joints count: names, types, limits,
/// mimicry. Actuator and sensor i belong to one joint; the sensors of mimic
/// joints follow. Throws a `UserError` of all that is wrong.
MachineModel readUrdf(const std::string& path, const std::string& text);

/// The same into an empty draft, whose limits are not settled yet. Errors are reported to the
/// draft's, or thrown.
void addUrdf(const std::string& path, const std::string& text, MachineDraft& draft);

/// No URDF file may be longer.
constexpr std::size_t maxUrdfBytes = std::size_t{64} << 20;

}  // namespace host
