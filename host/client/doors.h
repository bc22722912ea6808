#pragma once

#include <string>
#include <vector>

namespace host {

/// A machine whose door may be open.
struct MachinePlace {
  std::string name;
  std::string socketPath;
};

/// The machines that this user has started with `torvex serve`, by name: those that run, and those
/// that were killed.
std::vector<MachinePlace> doorsOfUser();

/// The socket of a machine: of this name, at this path, or, when empty, of the only one that runs.
/// Throws `NoMachine` when there is none, or more than one.
std::string doorOf(const std::string& machine);

}  // namespace host
