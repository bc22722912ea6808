// Trajectories and batches of commands, as text, for a machine of a few actuators.
// What is taken and is short is run to its end, and must go as it was rehearsed.

#include "host/input/machinefile.h"
#include "host/input/motionfile.h"

#include <algorithm>

#include "host/results/findings.h"
#include "input.h"
#include "tests/host/bothways.h"
#include "tests/support/temporary.h"

namespace {

host::MachineModel fewActuators() {
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

bool isShort(const host::Plan& plan) {
  constexpr std::int64_t shortMs = 3000;
  return std::all_of(plan.batches.begin(), plan.batches.end(),
                     [](const host::ScheduledBatch& batch) {
                       return batch.momentMs.value_or(0) <= shortMs &&
                              batch.originMs + batch.commands->lastMs() <= shortMs;
                     });
}

/// Every point must be accounted for, and nothing be told that the rehearsal did not tell.
void requireDelivery(const host::MachineModel& machine, const host::Plan& plan) {
  host::SessionOptions options;
  options.clock = host::Clock::simulated;
  options.poolName = "";
  options.guard = host::GuardMode::off;  // of which the rehearsal knows nothing
  options.startTick = 0xFFFFFF00;
  if (isShort(plan)) {
    const std::string difference = disagreement(machine, plan, options);
    require(difference.empty(), difference);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Temporary folder;
  static const host::MachineModel machine = fewActuators();
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::string path = folder.write("m.yaml", text);
  take(path, text, [&] {
    const std::vector<host::CommandBatch> motions = host::readMotionFiles({path}, machine);
    const host::Plan plan = host::planRun(machine, motions, {});
    host::Findings findings(machine, plan);
    host::rehearse(machine, plan, findings);
    (void)findings.all();
    requireDelivery(machine, plan);
  });
  return 0;
}
