#pragma once

#include <string>

#include "host/input/machinemodel.h"

namespace host {

/// The preferences of one container, to be written to one preference file.
struct PreferenceExport {
  std::string container;
  /// A name within the preference directory.
  std::string file;

  [[nodiscard]] std::string pathIn(const std::string& directory) const;
};

/// Throws `simulation::Error` when the machine has no device, actuator or sensor of
/// this name, and when the file's name leads out of the preference directory;
/// `UserError` when that can neither be written to nor made.
void checkExport(const MachineModel& machine, const PreferenceExport& wanted,
                 const std::string& directory);

/// Whether a file is what an export wrote, of at most 32 MiB.
bool isPreferenceFile(const std::string& path);

/// Exports from the device pool of this process through the registered broker,
/// and says in words for a user what was written, or that nothing was. Throws
/// `ZR::ZRException` when it could not be written.
std::string exportPreferences(const PreferenceExport& wanted, const std::string& directory);

}  // namespace host
