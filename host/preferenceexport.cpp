#include "host/preferenceexport.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

#include "preferences/exportqelvopreferences.h"
#include "simulation/framework.h"

namespace host {
namespace {

template <typename Containers>
bool hasName(const Containers& containers, const std::string& name) {
  return std::any_of(containers.begin(), containers.end(),
                     [&](const auto& container) { return container.name == name; });
}

}  // namespace

std::string PreferenceExport::pathIn(const std::string& directory) const {
  return (std::filesystem::path(directory) / file).string();
}

void checkExport(const MachineFile& machine, const PreferenceExport& wanted) {
  const simulation::MachineDescription& description = machine.description;
  const std::string& name = wanted.container;
  if (!hasName(description.containers, name) && !hasName(description.actuators, name) &&
      !hasName(description.sensors, name)) {
    throw simulation::Error(fmt::format(
        "machine '{}' has no device, actuator or sensor '{}'; 'torvex list' shows them in the keys",
        machine.name, name));
  }
  if (!simulation::isPreferenceFileName(wanted.file)) {
    throw simulation::Error(fmt::format(
        "'{}' is no name of a preference file; choose its folder with --directory", wanted.file));
  }
}

std::string exportPreferences(const PreferenceExport& wanted, const std::string& directory) {
  const ExportQelvoPreferences done(wanted.container.c_str(), wanted.file.c_str());
  if (!done.keyAdded) {
    return fmt::format("{} has no preferences in use: nothing was written\n", wanted.container);
  }
  const std::string path = wanted.pathIn(directory);
  return fmt::format("{}: {} preferences are in {}\n", wanted.container,
                     simulation::readPreferenceFile(path).getSize(), path);
}

}  // namespace host
