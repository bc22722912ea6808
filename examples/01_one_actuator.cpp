// One actuator, one list of commands, and the cycle that executes them: a simulated
// elbow moves to 0.5 in one second, and back in another one. A command is a value
// and the time stamp at which it is due, on the clock of the cycle. Between two
// commands each cycle writes a value on the straight line. The measured value lags
// behind the command. Prints within two seconds:
//   0 ms: command 0.000, measured 0.000
//   500 ms: command 0.250, measured 0.242
//   1000 ms: command 0.500, measured 0.492
//   1500 ms: command 0.250, measured 0.258
//   2000 ms: command 0.000, measured 0.008

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

#include "attrfullname/attrfullname.h"
#include "registry/attrfullnamemanager.h"
#include "simulation/machine.h"
#include "timedcommandmanager/timedcommandmanager.h"

int main() {
  simulation::MachineDescription description;
  description.actuators.emplace_back().name = "Elbow";
  description.sensors.emplace_back().name = "ElbowSensor";  // follows actuator 0
  simulation::Machine machine("example-" + std::to_string(getpid()), description);

  AttrFullName names;            // attribute names <-> indexes
  TimedCommandManager commands;  // one timeline per attribute
  setAttrFullNameManager(&names);
  names.initNameList(0);
  commands.initTimedCommand(0);

  CommandList list;
  list.emplace_back(hal::AttrGeneric(0.5F), 1000);
  list.emplace_back(hal::AttrGeneric(0.0F), 2000);
  if (!commands.AddTimedCommand("Elbow/Value", list, TimedCommand::REPLACE) || !list.empty()) {
    return 1;  // unknown name, or the timeline is full and the list is unchanged
  }

  constexpr unsigned int cycleMs = 10;
  float highest = 0.0F;
  auto wakeUp = std::chrono::steady_clock::now();
  for (unsigned int now = 0, previous = 0; now <= 2000; previous = now, now += cycleMs) {
    std::this_thread::sleep_until(wakeUp += std::chrono::milliseconds(cycleMs));
    commands.run(now, previous);
    machine.step(0.001 * (now - previous));
    const float command = machine.actuatorValue(0).loadFloat();
    const float measured = machine.sensorValue(0).loadFloat();
    highest = std::max(highest, command);
    if (now % 500 == 0) {
      std::printf("%u ms: command %.3f, measured %.3f\n", now, double{command}, double{measured});
    }
  }
  return highest == 0.5F && machine.actuatorValue(0).loadFloat() == 0.0F ? 0 : 1;
}
