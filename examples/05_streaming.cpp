// A long motion through a window of 32 points, and a stop. A node that goes back to the node
// pool is searched for among the free ones: so spare nodes are kept in a reserve, pushes are
// built of them, and what the cycles released is taken back. Prints:
//   1500 ms: at 0.150, 32 queued, 64 in the reserve
//   stopped: at 0.150, 0 queued, 96 in the reserve

#include <unistd.h>

#include <cstdio>
#include <string>

#include "simulation/machine.h"
#include "timedcommandmanager/timedcommandmanager.h"

namespace {
/// Where cycles have a thread of their own, hold a lock of your own around each of them and
/// around each push: no cycle may come between the look and the push.
struct Streamer {
  TimedCommand& timeline;
  CommandList reserve = CommandList(32 + 64);  // as the pool grows: none of its nodes is free
  std::size_t queued = 0;                      // when it looked last
  std::uint32_t next = 0;                      // of the motion's points

  void push(std::size_t count, TimedCommand::commandType mode) {
    CommandList points;
    for (; points.size() < count && next < 1000; ++next) {
      points.splice(points.end(), reserve, reserve.begin());
      points.back() = {hal::AttrGeneric(0.005F * static_cast<float>(next)), 50 * next};
    }
    queued += points.size();
    timeline.pushTimedCommand(points, mode);
    for (; queued > timeline.commandList.size(); --queued) {
      reserve.emplace_front();  // a node that its own pushes had released: never more of them
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
  elbow.push(0, TimedCommand::REPLACE);  // with nothing: a stop
  show("stopped");
  return elbow.reserve.size() == 96 ? 0 : 1;
}
