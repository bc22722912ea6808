#pragma once

#include <string>

#include "host/input/machinemodel.h"

namespace host {

/// Reads a URDF or a machine file (YAML), whichever it is. Throws `UserError`.
MachineModel readMachineFile(const std::string& path);

}  // namespace host
