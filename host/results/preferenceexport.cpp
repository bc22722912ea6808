#include "host/results/preferenceexport.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <set>
#include <system_error>

#include "host/base/outputpaths.h"
#include "platform/hal/attributecontainer.h"
#include "platform/hal/devicepool.h"
#include "platform/zr/zrexception.h"
#include "preferences/exportqelvopreferences.h"
#include "simulation/framework.h"

namespace host {
namespace {

template <typename Containers>
bool hasName(const Containers& containers, const std::string& name) {
  return std::any_of(containers.begin(), containers.end(),
                     [&](const auto& container) { return container.name == name; });
}

/// Of the preferences in use of a container, in the pool of this process.
std::size_t keyCount(const std::string& container) {
  const hal::DevicePool& pool = *hal::getDevicePool();
  std::set<std::string> keys;
  for (int i = 0; i < pool.preferenceCount; ++i) {
    const hal::Preference& preference = *pool.preferences[i];
    if (preference.inUse != 0 && container == preference.owner->name.get()) {
      keys.emplace(preference.name.get() + 1);
    }
  }
  return keys.size();
}

}  // namespace

std::string PreferenceExport::pathIn(const std::string& directory) const {
  return (std::filesystem::path(directory) / file).string();
}

void checkExport(const MachineModel& machine, const PreferenceExport& wanted,
                 const std::string& directory) {
  const simulation::MachineDescription& description = machine.description;
  const std::string& name = wanted.container;
  if (!hasName(description.containers, name) && !hasName(description.actuators, name) &&
      !hasName(description.sensors, name)) {
    throw simulation::Error(
        fmt::format("machine '{}' has no device, actuator or sensor '{}'", machine.name, name));
  }
  if (!simulation::isPreferenceFileName(wanted.file)) {
    throw simulation::Error(fmt::format(
        "'{}' is no name of a preference file; choose its folder with --directory", wanted.file));
  }
  checkFolder(directory);
}

bool isPreferenceFile(const std::string& path) {
  constexpr std::uintmax_t mostBytes = 32U << 20U;
  std::error_code none;
  if (std::filesystem::file_size(path, none) > mostBytes) {
    return false;
  }
  try {
    (void)simulation::readPreferenceFile(path);
    return true;
  } catch (const ZR::ZRException&) {
    return false;
  }
}

std::string exportPreferences(const PreferenceExport& wanted, const std::string& directory) {
  const ExportQelvoPreferences done(wanted.container.c_str(), wanted.file.c_str());
  return done.keyAdded
             ? fmt::format("{}: keys exported: {}, to {}", wanted.container,
                           keyCount(wanted.container), wanted.pathIn(directory))
             : fmt::format("{} has no preferences in use: nothing was written", wanted.container);
}

}  // namespace host
