#include "host/report.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace host {
namespace {

std::string microseconds(std::uint64_t nanoseconds) {
  return fmt::format("{:.1f}", static_cast<double>(nanoseconds) / 1000.0);
}

/// The course of a joint's commands between their least and greatest value.
std::string drawShape(const MovedJoint& joint) {
  static constexpr const char* levels[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
  const auto end = joint.shape.begin() + static_cast<std::ptrdiff_t>(joint.shapeFilled);
  if (joint.shape.begin() == end) {
    return {};
  }
  const auto [least, most] = std::minmax_element(joint.shape.begin(), end);
  std::string drawn;
  for (auto sample = joint.shape.begin(); sample != end; ++sample) {
    const float share = *most > *least ? (*sample - *least) / (*most - *least) : 0.0F;
    drawn += levels[std::lround(share * 7.0F)];
  }
  return drawn;
}

std::size_t longestName(const std::vector<MovedJoint>& joints) {
  std::size_t longest = 5;
  for (const MovedJoint& joint : joints) {
    longest = std::max(longest, joint.name.size());
  }
  return longest;
}

}  // namespace

std::string loadedReport(const Robot& robot, const Motion& motion, const Schedule& schedule,
                         const RunOptions& options, bool replacedLeftover) {
  const auto& machine = robot.machine;
  std::string text =
      fmt::format("robot   {}: {} actuators, {} sensors ({})\n", robot.name,
                  machine.actuators.size(), machine.sensors.size(), options.robotPath);
  text += fmt::format("motion  {} points on {} joints in {:.3f} s ({})\n", motion.times.size(),
                      motion.actuators.size(), static_cast<double>(motion.times.back()) / 1000.0,
                      motion.path);
  for (const std::string& note : motion.notes) {
    text += fmt::format("note    {}\n", note);
  }
  text += fmt::format("pool    /dev/shm/torvex.{}{}\n", options.poolName,
                      replacedLeftover ? ", in place of one that a killed process left" : "");
  text += fmt::format("clock   {}, cycle {} ms, from tick {}\n",
                      options.clock == Clock::realtime ? "real time" : "simulated time",
                      schedule.cycleMs, schedule.startTick);
  return text + fmt::format("lead    {} ms to the start of the motion: {}\n", schedule.leadMs,
                            schedule.leadReason);
}

std::string runReport(Torvex& torvex) {
  const CycleCount& counts = torvex.counts();
  const Histogram& durations = counts.durations;
  std::string text =
      fmt::format("\ncycles  {}, overruns {}; duration in us: min {}, median {}, p99 {}, max {}\n",
                  counts.cycles, counts.overruns, microseconds(durations.minimum()),
                  microseconds(durations.quantile(0.5)), microseconds(durations.quantile(0.99)),
                  microseconds(durations.maximum()));
  const std::size_t width = longestName(torvex.joints());
  text += fmt::format("\n{:<{}} {:>6} {:>9} {:>7} {:>7} {:>5} {:>8} {:>8} {:>8}  course\n", "joint",
                      width, "sent", "delivered", "refused", "limited", "moved", "target",
                      "command", "measured");
  for (std::size_t i = 0; i < torvex.joints().size(); ++i) {
    const MovedJoint& joint = torvex.joints()[i];
    const FeedCount& fed = torvex.feeder().counts()[i];
    text += fmt::format("{:<{}} {:>6} {:>9} {:>7} {:>7} {:>5} {:>8.4f} {:>8.4f} {:>8.4f}  {}\n",
                        joint.name, width, fed.sent, fed.delivered, fed.refused,
                        torvex.machine().counters(joint.actuator).limited,
                        joint.cyclesMovedByOthers, joint.finalTarget, joint.command->loadFloat(),
                        joint.measured->loadFloat(), drawShape(joint));
  }
  return text;
}

std::vector<std::string> shortfalls(Torvex& torvex) {
  std::vector<std::string> reasons;
  for (std::size_t i = 0; i < torvex.joints().size(); ++i) {
    const MovedJoint& joint = torvex.joints()[i];
    const std::uint64_t delivered = torvex.feeder().counts()[i].delivered;
    if (delivered != torvex.feeder().itemCount()) {
      reasons.push_back(fmt::format("{}: {} of {} items were delivered", joint.name, delivered,
                                    torvex.feeder().itemCount()));
    }
    if (!(joint.command->loadFloat() == joint.finalTarget)) {
      reasons.push_back(fmt::format("{}: the last command is {} instead of {}", joint.name,
                                    joint.command->loadFloat(), joint.finalTarget));
    }
    if (!(joint.trackingError() <= torvex.options().tolerance)) {
      reasons.push_back(fmt::format("{}: measured {} for the command {}, more than {} away",
                                    joint.name, joint.measured->loadFloat(),
                                    joint.command->loadFloat(), torvex.options().tolerance));
    }
  }
  return reasons;
}

std::vector<std::string> warnings(const Torvex& torvex) {
  std::vector<std::string> texts;
  const CycleCount& counts = torvex.counts();
  if (counts.droppedTraceRows > 0) {
    texts.push_back(
        fmt::format("the trace lacks {} rows: the disk did not keep up", counts.droppedTraceRows));
  }
  for (std::size_t i = 0; i < torvex.joints().size(); ++i) {
    const MovedJoint& joint = torvex.joints()[i];
    if (torvex.feeder().counts()[i].late > 0) {
      texts.push_back(fmt::format("{}: {} items came after they were due", joint.name,
                                  torvex.feeder().counts()[i].late));
    }
    if (counts.cycles > 1 && joint.cyclesMovedByOthers * 10 >= counts.cycles * 9) {
      texts.push_back(fmt::format(
          "{}: its value was not what the last cycle wrote in {} of {} cycles; either somebody "
          "else commands it, or it does not read back what is written",
          joint.name, joint.cyclesMovedByOthers, counts.cycles));
    }
  }
  return texts;
}

}  // namespace host
