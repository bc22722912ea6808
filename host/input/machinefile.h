#pragma once

#include <string>

#include "host/input/machinedraft.h"
#include "host/input/machinemodel.h"

namespace host {

/// Reads a URDF or a machine file (YAML), whichever it is. Throws `UserError`.
MachineModel readMachineFile(const std::string& path);
/// The same of texts that lie elsewhere: `textOf` gives that of a path.
MachineModel readMachine(const std::string& path, const MachineDraft::TextOf& textOf);

}  // namespace host
