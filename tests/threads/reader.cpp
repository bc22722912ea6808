#include <unistd.h>

#include "simulation/observer.h"
#include "tests/threads/machine.h"

int readPool(const char* poolName) {
  const simulation::Observer observer(poolName);
  constexpr int step = simulation::MachineDescription::attributesPerActuator;
  hal::AttrGeneric latest[actuators + 1];
  int moves[actuators + 1] = {};
  bool haveMoved = false;
  while (observer.isOwned()) {
    for (int turn = 0; turn < 1000; ++turn) {
      for (int i = 0; i <= actuators; ++i) {  // the last is the sensor of the swayed one
        const hal::AttrGeneric value = observer.value(i * step);
        if (!isSound(i == actuators ? swayed : i, value)) {
          return 10 + i;
        }
        moves[i] += value.asTextOffset == latest[i].asTextOffset ? 0 : 1;
        latest[i] = value;
      }
    }
    if (!haveMoved && moves[merged] > 3 && moves[swayed] > 3 && moves[actuators] > 3) {
      haveMoved = write(STDOUT_FILENO, "", 1) == 1;
    }
  }
  return haveMoved ? 0 : 1;
}
