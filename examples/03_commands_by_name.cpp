// A second thread sends commands while the cycle runs: by the short name of an
// attribute, by its full key, and by a name that does not exist. Prints:
//   Elbow/Value: taken
//   Device/SubDeviceList/Wrist/Value: taken
//   Knee/Value: unknown
//   Elbow at 0.50, Wrist at -0.25

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

#include "attrfullname/attrfullname.h"
#include "registry/attrfullnamemanager.h"
#include "simulation/machine.h"
#include "timedcommandmanager/timedcommandmanager.h"

namespace {
std::atomic<unsigned int> cycleTime{0};
int unknownNames = 0;

/// For any thread except that of the cycle. Stamps are absolute, so it needs the time.
void send(const char* name, float value) {
  CommandList list;
  list.emplace_back(hal::AttrGeneric(value), cycleTime + 300);
  const bool known = getTimedCommandManager()->AddTimedCommand(name, list, TimedCommand::REPLACE);
  std::printf("%s: %s\n", name, !known ? "unknown" : list.empty() ? "taken" : "refused");
  unknownNames += known ? 0 : 1;
}
}  // namespace

int main() {
  simulation::MachineDescription description;
  description.actuators.emplace_back().name = "Elbow";
  description.actuators.emplace_back().name = "Wrist";
  const simulation::Machine machine("example-" + std::to_string(getpid()), description);
  AttrFullName names;
  TimedCommandManager commands;
  setAttrFullNameManager(&names);
  setTimedCommandManager(&commands);
  names.initNameList(0);  // both tables are complete before the sender starts
  commands.initTimedCommand(0);
  std::thread sender([] {
    send("Elbow/Value", 0.5F);
    send("Device/SubDeviceList/Wrist/Value", -0.25F);
    send("Knee/Value", 1.0F);
  });
  const auto value = [&machine](int index) { return machine.actuatorValue(index).loadFloat(); };
  for (unsigned int now = 0; now < 10000 && (value(0) != 0.5F || value(1) != -0.25F); now += 10) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    commands.run(now, now - 10);
    cycleTime = now;
  }
  sender.join();
  std::printf("Elbow at %.2f, Wrist at %.2f\n", double{value(0)}, double{value(1)});
  return value(0) == 0.5F && value(1) == -0.25F && unknownNames == 1 ? 0 : 1;
}
