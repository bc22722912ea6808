#include "host/report.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace host {
namespace {

std::string microseconds(std::uint64_t nanoseconds) {
  return fmt::format("{:.1f}", static_cast<double>(nanoseconds) / 1000.0);
}

std::string quantiles(const Histogram& histogram) {
  return fmt::format("in us: p50 {}, p99 {}, p99.9 {}, max {}\n",
                     microseconds(histogram.quantile(0.5)), microseconds(histogram.quantile(0.99)),
                     microseconds(histogram.quantile(0.999)), microseconds(histogram.maximum()));
}

std::string orDash(const std::optional<double>& number) {
  return number ? fmt::format("{:.4f}", *number) : "-";
}

Json quantilesJson(const Histogram& histogram) {
  return {{"p50", histogram.quantile(0.5)},
          {"p99", histogram.quantile(0.99)},
          {"p99.9", histogram.quantile(0.999)},
          {"max", histogram.maximum()}};
}

Json numberOrNull(const std::optional<double>& number) {
  return number ? Json(static_cast<float>(*number)) : Json();
}

Json actuatorJson(Torvex& torvex, std::size_t i) {
  const MovedActuator& actuator = torvex.actuators()[i];
  const FeedCount& fed = torvex.feeder().count(i);
  return {{"name", actuator.name},
          {"sent", fed.sent},
          {"delivered", fed.delivered},
          {"late", fed.late},
          {"refused", fed.refused},
          {"cleared", fed.cleared},
          {"limited", torvex.machine().counters(actuator.index).limited},
          {"moved", actuator.cyclesMovedByOthers},
          {"target", numberOrNull(actuator.finalTarget)},
          {"command", numberOrNull(actuator.commanded())},
          {"measured", numberOrNull(actuator.measuredValue())}};
}

/// The course of the commands between their least and greatest value.
std::string drawCourse(const Recording& recording, std::size_t column) {
  static constexpr const char* levels[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
  constexpr std::size_t samples = 20;
  std::vector<double> values;
  for (std::size_t i = 0; i < samples && recording.rows() > 0; ++i) {
    values.push_back(recording.value(i * (recording.rows() - 1) / (samples - 1), column));
  }
  const auto [least, most] = std::minmax_element(values.begin(), values.end());
  std::string drawn;
  for (const double value : values) {
    const double share = *most > *least ? (value - *least) / (*most - *least) : 0.0;
    drawn += levels[std::lround(share * 7.0)];
  }
  return drawn;
}

std::size_t longestName(const std::vector<MovedActuator>& actuators) {
  std::size_t longest = 8;
  for (const MovedActuator& actuator : actuators) {
    longest = std::max(longest, actuator.name.size());
  }
  return longest;
}

std::string describe(const Motion& motion) {
  const double seconds = motion.times.empty() ? 0.0 : motion.times.back() / 1000.0;
  const std::string size =
      fmt::format("{} points on {} actuator{} in {:.3f} s", motion.times.size(),
                  motion.actuators.size(), motion.actuators.size() == 1 ? "" : "s", seconds);
  return motion.atMs ? fmt::format("list    {} at {:.3f} s: {} ({}:{})\n", modeName(motion.mode),
                                   *motion.atMs / 1000.0, size, motion.path, motion.place.line)
                     : fmt::format("motion  {} ({})\n", size, motion.path);
}

}  // namespace

std::string loadedReport(const MachineFile& machine, const std::vector<Motion>& motions,
                         const Schedule& schedule, const RunOptions& options,
                         bool replacedLeftover) {
  std::string text = fmt::format("machine {}: {} actuators, {} sensors ({})\n", machine.name,
                                 machine.description.actuators.size(),
                                 machine.description.sensors.size(), options.machinePath);
  for (const Motion& motion : motions) {
    text += describe(motion);
    for (const std::string& note : motion.notes) {
      text += fmt::format("note    {}\n", note);
    }
  }
  text += fmt::format("pool    /dev/shm/torvex.{}{}\n", options.poolName,
                      replacedLeftover ? ", in place of one that a killed process left" : "");
  text += fmt::format("clock   {}, cycle {} ms, from tick {}\n",
                      options.clock == Clock::realtime ? "real time" : "simulated time",
                      schedule.cycleMs, options.startTick);
  return text + fmt::format("lead    {} ms to the start of the motion: {}\n", schedule.leadMs,
                            schedule.leadReason);
}

std::string runReport(Torvex& torvex) {
  const CycleCount& counts = torvex.counts();
  std::string text = fmt::format("\ncycles  {}, overruns {}\n", counts.cycles, counts.overruns);
  if (torvex.options().clock == Clock::realtime) {
    text += "latency   " + quantiles(counts.latencies);
  }
  text += "duration  " + quantiles(counts.durations);
  const std::size_t width = longestName(torvex.actuators());
  text += fmt::format("\n{:<{}} {:>6} {:>9} {:>7} {:>7} {:>7} {:>5} {:>8} {:>8} {:>8}  course\n",
                      "actuator", width, "sent", "delivered", "refused", "cleared", "limited",
                      "moved", "target", "command", "measured");
  for (std::size_t i = 0; i < torvex.actuators().size(); ++i) {
    const MovedActuator& actuator = torvex.actuators()[i];
    const FeedCount& fed = torvex.feeder().count(i);
    text += fmt::format("{:<{}} {:>6} {:>9} {:>7} {:>7} {:>7} {:>5} {:>8} {:>8.4f} {:>8}  {}\n",
                        actuator.name, width, fed.sent, fed.delivered, fed.refused, fed.cleared,
                        torvex.machine().counters(actuator.index).limited,
                        actuator.cyclesMovedByOthers, orDash(actuator.finalTarget),
                        actuator.commanded(), orDash(actuator.measuredValue()),
                        drawCourse(torvex.recording(), actuator.commandColumn));
  }
  return text;
}

Json runJson(Torvex& torvex, const Outcome& outcome) {
  const RunOptions& options = torvex.options();
  const CycleCount& counts = torvex.counts();
  const bool realtime = options.clock == Clock::realtime;
  Json actuators = Json::array();
  for (std::size_t i = 0; i < torvex.actuators().size(); ++i) {
    actuators.push_back(actuatorJson(torvex, i));
  }
  return {{"machine", outcome.machine},
          {"machine_file", options.machinePath},
          {"motions", options.motionPaths},
          {"pool", options.poolName},
          {"clock", realtime ? "realtime" : "simulated"},
          {"cycle_ms", options.timing.cycleMs},
          {"cycles", counts.cycles},
          {"overruns", counts.overruns},
          {"dropped_trace_rows", counts.droppedTraceRows},
          {"latency_ns", realtime ? quantilesJson(counts.latencies) : Json()},
          {"duration_ns", quantilesJson(counts.durations)},
          {"actuators", actuators},
          {"exports", outcome.exports},
          {"warnings", outcome.warnings},
          {"errors", outcome.errors},
          {"signal", outcome.signal == 0 ? Json() : Json(outcome.signal)}};
}

std::vector<std::string> shortfalls(Torvex& torvex) {
  std::vector<std::string> reasons;
  for (std::size_t i = 0; i < torvex.actuators().size(); ++i) {
    const MovedActuator& actuator = torvex.actuators()[i];
    const std::uint64_t delivered = torvex.feeder().count(i).delivered;
    if (const std::size_t waiting = torvex.feeder().waiting(i); waiting > 0) {
      reasons.push_back(fmt::format("{}: {} of {} items were delivered", actuator.name, delivered,
                                    delivered + waiting));
    }
    if (actuator.finalTarget && !(actuator.commanded() == *actuator.finalTarget)) {
      reasons.push_back(fmt::format("{}: the last command is {} instead of {}", actuator.name,
                                    actuator.commanded(), *actuator.finalTarget));
    }
    if (!(actuator.trackingError() <= torvex.options().tolerance)) {
      reasons.push_back(fmt::format("{}: measured {} for the command {}, more than {} away",
                                    actuator.name, *actuator.measuredValue(), actuator.commanded(),
                                    torvex.options().tolerance));
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
  for (std::size_t i = 0; i < torvex.actuators().size(); ++i) {
    const MovedActuator& actuator = torvex.actuators()[i];
    if (const std::uint64_t late = torvex.feeder().count(i).late; late > 0) {
      texts.push_back(fmt::format("{}: {} items came after they were due", actuator.name, late));
    }
    if (counts.cycles > 1 && actuator.cyclesMovedByOthers * 10 >= counts.cycles * 9) {
      texts.push_back(fmt::format(
          "{}: its value was not what the last cycle wrote in {} of {} cycles; either somebody "
          "else commands it, or it does not read back what is written",
          actuator.name, actuator.cyclesMovedByOthers, counts.cycles));
    }
  }
  return texts;
}

}  // namespace host
