// Trajectories and lists of commands, as text, for a machine of a few actuators.
// What is taken and is short is run to its end.

#include "host/input/motion.h"

#include "host/check.h"
#include "host/plan.h"
#include "host/results/report.h"
#include "host/engine/torvex.h"
#include "input.h"
#include "tests/support/temporary.h"

namespace {

host::MachineFile fewActuators() {
  const Temporary folder;
  return host::readMachineFile(
      folder.write("m.yaml",
                   "actuators:\n"
                   "- {name: a, minimum: -1, maximum: 2, maximum_velocity: 3}\n"
                   "- {name: b}\n"
                   "- {name: still, minimum: 0, maximum: 1, maximum_velocity: 0}\n"
                   "- {name: i, type: 2, minimum: -9, maximum: 9}\n"
                   "- {name: s, law: step}\n"));
}

/// Every item must be delivered, and no actuator end elsewhere than it was told.
void requireDelivery(const host::MachineFile& machine, const host::Plan& plan) {
  constexpr std::int64_t shortMs = 3000;
  host::RunOptions options;
  options.clock = host::Clock::simulated;
  options.poolName = "";
  options.startTick = 0xFFFFFF00;
  Torvex torvex(machine, plan, options);
  if (torvex.lastItemMs() <= shortMs) {
    torvex.run([](std::int64_t) {});
    for (const std::string& shortfall : host::shortfalls(torvex)) {
      require(false, shortfall);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Temporary folder;
  static const host::MachineFile machine = fewActuators();
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::string path = folder.write("m.yaml", text);
  take(path, text, [&] {
    const std::vector<host::Motion> motions = host::readMotionFiles({path}, machine);
    const host::Plan plan = host::planRun(machine, motions, {});
    (void)host::limitWarnings(machine, plan);
    (void)host::lateItems(motions);
    requireDelivery(machine, plan);
  });
  return 0;
}
