#pragma once

#include <string>
#include <vector>

#include "host/client/dooraddress.h"

namespace host {

/// One of the machines of a fleet.
struct FleetMachine {
  std::string name;
  DoorAddress door;
  /// What `fleet hold`, `release` and `stop` are about; empty: all actuators.
  std::vector<std::string> axes;
  /// What it plays unless the user names others: FILE or FILE:NAME each.
  std::vector<std::string> motions;
};

struct Fleet {
  /// At least one, each with another name.
  std::vector<FleetMachine> machines;
  /// When one is lost, the others are held.
  bool allOrNone = false;
};

/// Reads a file of machines and their doors. Paths in it count from its folder. Throws
/// `UserError`, also for the files of tokens.
Fleet readFleetFile(const std::string& path);

}  // namespace host
