#include "host/cli/fleet/fleetmotions.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "host/base/usererror.h"

namespace host {
namespace {

/// The machine that "NAME=MOTION" is for; empty for all.
std::string machineIn(const std::string& motion) {
  const std::size_t sign = motion.find('=');
  return sign == std::string::npos || motion.find('/') < sign ? "" : motion.substr(0, sign);
}

}  // namespace

std::vector<std::vector<std::string>> motionsOf(const Fleet& fleet,
                                                const std::vector<std::string>& given) {
  std::vector<std::vector<std::string>> motions(fleet.machines.size());
  std::set<std::string> meant;
  for (std::size_t i = 0; i < motions.size(); ++i) {
    const FleetMachine& machine = fleet.machines[i];
    motions[i] = given.empty() ? machine.motions : std::vector<std::string>();
    meant.insert(machine.name);
    for (const std::string& motion : given) {
      const std::string name = machineIn(motion);
      if (name.empty() || name == machine.name) {
        motions[i].push_back(motion.substr(name.empty() ? 0 : name.size() + 1));
      }
    }
  }
  for (const std::string& motion : given) {
    const std::string name = machineIn(motion);
    if (!name.empty() && meant.count(name) == 0) {
      throw UserError(motion, {}, fmt::format("the fleet has no machine '{}'", name));
    }
  }
  if (std::all_of(motions.begin(), motions.end(), [](const auto& each) { return each.empty(); })) {
    throw UserError("MOTION", {},
                    "there is nothing to play: name motions here, or in the fleet file");
  }
  return motions;
}

}  // namespace host
