// A long motion through a window of 32 points, and a stop. Returning a node to the node pool
// costs a search through its free nodes. So spare nodes are kept in a reserve: pushes are built
// from it, and the nodes that cycles released are taken back. Prints:
//   1500 ms: at 0.150, 32 queued, 64 in the reserve
//   stopped: at 0.150, 0 queued, 96 in the reserve

#include <unistd.h>

#include <cstdio>
#include <string>

#include "simulation/machine.h"
#include "timedcommandmanager/timedcommandmanager.h"

namespace {
/// If cycles have a thread of their own, hold a lock of your own around each cycle and around
/// each push: no cycle may run between looking at the timeline and the push.
struct Streamer {
  TimedCommand& timeline;
  CommandList reserve = CommandList(32 + 64);  // new nodes: the pool has no free ones
  std::size_t queued = 0;                      // at the last look
  std::uint32_t next = 0;                      // the motion's next point

  void push(std::size_t count, TimedCommand::commandType mode) {
    CommandList points;
    for (; points.size() < count && next < 1000; ++next) {
      points.splice(points.end(), reserve, reserve.begin());
      points.back() = {hal::AttrGeneric(0.005F * static_cast<float>(next)), 50 * next};
    }
    queued += points.size();
    timeline.pushTimedCommand(points, mode);
    for (; queued > timeline.commandList.size(); --queued) {
      reserve.emplace_front();  // only nodes that its own pushes had released
    }
  }
};
}  // namespace

int main() {
  simulation::MachineDescription description;
  description.actuators.emplace_back().name = "Elbow";
  const simulation::Machine machine("example-" + std::to_string(getpid()), description);
  TimedCommandManager commands;
  commands.initTimedCommand(0);
  Streamer elbow{*commands.actuatorCommands[0]};
  const auto show = [&](const char* when) {
    std::printf("%s: at %.3f, %zu queued, %zu in the reserve\n", when,
                double{machine.actuatorValue(0).loadFloat()}, elbow.queued, elbow.reserve.size());
  };
  for (unsigned int now = 0, previous = 0; now <= 1500; previous = now, now += 10) {
    commands.run(now, previous);
    elbow.push(32 - elbow.timeline.commandList.size(), TimedCommand::MERGE);
  }
  show("1500 ms");
  elbow.push(0, TimedCommand::REPLACE);  // an empty list: a stop
  show("stopped");
  return elbow.reserve.size() == 96 ? 0 : 1;
}
