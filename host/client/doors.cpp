#include "host/client/doors.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

#include "host/base/doorfolder.h"
#include "host/client/doorclient.h"

namespace host {
namespace {

constexpr char startOne[] = "start one with 'torvex serve MACHINE'";

/// Whether somebody listens, or only did.
bool isOpen(const MachinePlace& place) {
  try {
    const DoorClient door(place.socketPath);
    return true;
  } catch (const NoMachine&) {
    return false;
  }
}

}  // namespace

std::vector<MachinePlace> doorsOfUser() {
  std::vector<MachinePlace> places;
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(doorFolder(), ignored)) {
    if (entry.path().extension() == ".sock") {
      places.push_back({entry.path().stem(), entry.path()});
    }
  }
  std::sort(places.begin(), places.end(), [](const MachinePlace& one, const MachinePlace& other) {
    return one.name < other.name;
  });
  return places;
}

std::string doorOf(const std::string& machine) {
  if (machine.find('/') != std::string::npos) {
    return machine;
  }
  std::vector<MachinePlace> places = doorsOfUser();
  if (!machine.empty()) {
    const auto named = std::find_if(places.begin(), places.end(), [&](const MachinePlace& place) {
      return place.name == machine;
    });
    if (named == places.end()) {
      throw NoMachine(fmt::format("no machine '{}' runs; {}", machine, startOne));
    }
    return named->socketPath;
  }
  places.erase(std::remove_if(places.begin(), places.end(),
                              [](const MachinePlace& place) { return !isOpen(place); }),
               places.end());
  if (places.empty()) {
    throw NoMachine(fmt::format("no machine runs; {}", startOne));
  }
  if (places.size() > 1) {
    std::string names;
    for (const MachinePlace& place : places) {
      names += (names.empty() ? "" : ", ") + place.name;
    }
    throw NoMachine(fmt::format("several machines run; pick one by --machine: {}", names));
  }
  return places.front().socketPath;
}

}  // namespace host
