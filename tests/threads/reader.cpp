#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "simulation/observer.h"
#include "tests/threads/machine.h"

namespace {

struct Watched {
  int actuator, index;
  hal::AttrGeneric latest;
  int moves = 0;
};

bool isInOrder(const Watched& watched, const hal::AttrGeneric& value) {
  return watched.actuator >= pushers ||
         static_cast<std::int32_t>(stampIn(value) - stampIn(watched.latest)) > 0;
}

}  // namespace

int readPool(const char* poolName) {
  const simulation::Observer observer(poolName);
  constexpr int step = simulation::MachineDescription::attributesPerActuator;
  std::vector<Watched> values = {{swayed, actuators * step, {}}};  // the sensor
  for (int i = 0; i < actuators; ++i) {
    values.push_back({i, i * step, {}});
  }
  for (Watched& watched : values) {
    watched.latest = observer.value(watched.index);
  }
  bool haveMoved = false;
  while (observer.isOwned()) {
    for (int turn = 0; turn < 1000; ++turn) {
      for (Watched& watched : values) {
        const hal::AttrGeneric value = observer.value(watched.index);
        if (value.asTextOffset == watched.latest.asTextOffset) {
          continue;
        }
        if (!isSound(watched.actuator, value) || !isInOrder(watched, value)) {
          return 10 + watched.index;
        }
        watched.latest = value;
        ++watched.moves;
      }
    }
    if (!haveMoved && std::all_of(values.begin(), values.end(), [](const Watched& watched) {
          return watched.actuator == restless || watched.moves > 2;
        })) {
      haveMoved = write(STDOUT_FILENO, "", 1) == 1;
    }
  }
  return haveMoved ? 0 : 1;
}
