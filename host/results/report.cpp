#include "host/results/report.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <string_view>

#include "host/base/clocks.h"
#include "host/base/counted.h"
#include "host/base/values.h"
#include "host/base/visible.h"
#include "host/motion/limits.h"
#include "host/results/table.h"

namespace host {
namespace {

constexpr std::size_t reportColumns = 80;
constexpr std::size_t nameColumns = 30;

std::string microseconds(std::uint64_t nanoseconds) {
  return fmt::format("{:.1f}", static_cast<double>(nanoseconds) / 1000.0);
}

std::string quantilesText(const Histogram& histogram) {
  return fmt::format("in us: p50 {}, p99 {}, p99.9 {}, max {}\n",
                     microseconds(histogram.quantile(0.5)), microseconds(histogram.quantile(0.99)),
                     microseconds(histogram.quantile(0.999)), microseconds(histogram.maximum()));
}

/// Integers exactly; floats with four digits behind the point, unless they are large.
std::string numberShown(const AxisResult& axis, double number) {
  if (axis.actuator.typeCode != hal::floatTypeCode) {
    return fmt::format("{:.0f}", number);
  }
  return std::abs(number) < 1e4 ? fmt::format("{:.4f}", number) : fmt::format("{:.4g}", number);
}

std::string measuredShown(const AxisResult& axis) {
  const auto& measured = axis.measured;
  return !measured                             ? "-"
         : *measured < 1e4 && *measured > -1e4 ? fmt::format("{:.4f}", *measured)
                                               : fmt::format("{:.4g}", *measured);
}

std::string targetShown(const AxisOutcome& outcome) {
  const AxisResult& axis = outcome.result;
  return outcome.asked ? numberShown(axis, commandedNumber(axis.actuator, *outcome.asked)) : "-";
}

/// The commands between their least and greatest value.
std::string sparkline(const SampleHistory& history, std::size_t column, std::size_t width) {
  static constexpr const char* levels[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
  std::vector<double> values;
  for (std::size_t i = 0; i < width && history.rows() > 0; ++i) {
    const double value = history.value(i * (history.rows() - 1) / (width - 1), column);
    values.push_back(std::isfinite(value) ? value : 0.0);
  }
  if (values.empty()) {
    return "";
  }
  const auto [least, most] = std::minmax_element(values.begin(), values.end());
  std::string drawn;
  for (const double value : values) {
    // Halved, so that the difference of any two is finite.
    const double share = *most > *least ? (value / 2 - *least / 2) / (*most / 2 - *least / 2) : 0.0;
    drawn += levels[std::lround(share * 7.0)];
  }
  return drawn;
}

std::string nameShown(const AxisResult& axis, std::size_t columns = nameColumns) {
  return cutInMiddle(visible(axis.actuator.name), columns);
}

std::string valuesTable(const RunResult& result, const Outcome& outcome) {
  Table table({"actuator", "points", "target", "command", "measured"});
  for (const AxisOutcome& axis : outcome.axes) {
    const AxisResult& of = axis.result;
    table.add({nameShown(of), std::to_string(of.counts.points), targetShown(axis),
               numberShown(of, of.commanded()), measuredShown(of)});
  }
  constexpr std::size_t widestLine = 20;
  constexpr std::size_t narrowestLine = 7;
  const std::size_t room = reportColumns - std::min(reportColumns, table.columns() + 2);
  const std::size_t width = std::clamp(room, narrowestLine, widestLine);
  table.addColumn("path", [&](std::size_t row) {
    const AxisOutcome& axis = outcome.axes[row];
    return axis.verdict == Verdict::reached
               ? sparkline(result.history, axis.result.commandColumn, width)
               : std::string(nameOf(axis.verdict));
  });
  return table.text();
}

/// What can become of points.
struct Count {
  const char* name;
  std::uint64_t (*of)(const AxisResult& axis);
};
constexpr Count fates[] = {
    {"reached", [](const AxisResult& axis) { return axis.counts.reached; }},
    {"cleared", [](const AxisResult& axis) { return axis.counts.cleared; }},
    {"refused", [](const AxisResult& axis) { return axis.counts.refused; }},
    {"left", [](const AxisResult& axis) { return axis.counts.left(); }},
    {"late", [](const AxisResult& axis) { return axis.counts.late; }},
    {"limited", [](const AxisResult& axis) { return axis.counts.limited; }},
    {"others", [](const AxisResult& axis) { return axis.externalWrites; }},
};

/// The axes with points that were not just reached.
std::vector<const AxisResult*> specialAxes(const Outcome& outcome) {
  std::vector<const AxisResult*> axes;
  for (const AxisOutcome& judged : outcome.axes) {
    const AxisResult& axis = judged.result;
    if (std::any_of(std::begin(fates) + 1, std::end(fates),
                    [&axis](const Count& count) { return count.of(axis) > 0; })) {
      axes.push_back(&axis);
    }
  }
  return axes;
}

/// Rows and columns in which something else happened than points being reached. Names are
/// cut where the counts are so long that they need the room.
std::string countsTable(const Outcome& outcome) {
  const std::vector<const AxisResult*> axes = specialAxes(outcome);
  if (axes.empty()) {
    return "";
  }
  std::vector<const Count*> happened;
  std::size_t columns = 0;
  for (const Count& count : fates) {
    std::size_t width = 0;
    for (const AxisResult* const axis : axes) {
      width = std::max(width, count.of(*axis) > 0 ? std::to_string(count.of(*axis)).size() : 0);
    }
    if (width > 0) {
      happened.push_back(&count);
      columns += 1 + std::max(width, std::string_view(count.name).size());
    }
  }
  constexpr std::size_t leastName = 15;
  const std::size_t room = reportColumns - std::min(reportColumns, columns);
  Table table({"of these points"});
  for (const AxisResult* const axis : axes) {
    table.add({nameShown(*axis, std::clamp(room, leastName, nameColumns))});
  }
  for (const Count* const count : happened) {
    table.addColumn(count->name,
                    [&](std::size_t row) { return std::to_string(count->of(*axes[row])); });
  }
  return "\n" + table.text();
}

std::string paceReport(const PaceCount& pace) {
  std::string text = fmt::format("overruns {}", pace.overruns);
  if (pace.stands > 0) {
    text += fmt::format(", stood for {}", pace.stands);
  }
  if (pace.stalls > 0) {
    text += fmt::format("\nstalls   {}, {} ms in all", pace.stalls, pace.stalledMs);
  }
  return text;
}

std::string describe(const CommandBatch& batch) {
  std::string size =
      fmt::format("{} on {} in {:.3f} s", counted(batch.size(), "point"),
                  counted(batch.actuators.size(), "actuator"), inSeconds(batch.lastMs()));
  if (batch.repeat > 1) {
    size += fmt::format(", {} rounds", batch.repeat);
  }
  return batch.atMs
             ? fmt::format("batch    {} at {:.3f} s: {} ({}:{})\n", modeName(batch),
                           inSeconds(*batch.atMs), size, visible(batch.path), batch.location.line)
             : fmt::format("motion   {} ({})\n", size, visible(batch.path));
}

}  // namespace

const char* const reportWords =
    "Words of the report:\n"
    "  approach  from the first cycle to the start of the motion\n"
    "  overruns  skipped cycles, because a cycle began or ended too late; stood: cycles in\n"
    "            which machine time waited for commands; stalls: the process did not run\n"
    "  points    those that the motions request for an actuator; target: the last of them\n"
    "  command   the value of its register at the end; measured: that of its sensor\n"
    "  path      its commands over time; or: limited (the target is beyond a limit),\n"
    "            stopped (before its target, by a batch or a signal), held (by the guard, at\n"
    "            its maximum velocity), missed (see the errors)\n"
    "  cleared   removed by a later batch; refused: not taken; left: not reached yet\n"
    "  late      due before their hand-over; limited: moved to a limit\n"
    "  others    cycles in which something else had written the register\n";

std::string noteLine(const std::string& note) {
  return fmt::format("note     {}\n", visible(note));
}

std::string loadedReport(const MachineModel& machine, const std::vector<CommandBatch>& batches,
                         const Schedule& schedule, const RunOptions& options,
                         bool replacedLeftover) {
  std::string text = fmt::format("machine  {}: {}, {} ({})\n", visible(machine.name),
                                 counted(machine.description.actuators.size(), "actuator"),
                                 counted(machine.description.sensors.size(), "sensor"),
                                 visible(options.machinePath));
  for (const CommandBatch& batch : batches) {
    text += describe(batch);
    for (const std::string& note : batch.notes) {
      text += noteLine(note);
    }
  }
  if (!options.session.poolName.empty()) {
    text += fmt::format("pool     {}{}\n", simulation::poolPath(options.session.poolName),
                        replacedLeftover ? ", in place of one that a killed process left" : "");
  }
  text += fmt::format("clock    {}, cycle {} ms, from tick {}\n",
                      options.session.clock == Clock::realtime ? "real time" : "simulated time",
                      schedule.cycleMs, options.session.startTick);
  return text + fmt::format("approach {} ms to the start of the motion: {}\n", schedule.approachMs,
                            visible(schedule.approachReason));
}

std::string runReport(const RunResult& result, const Outcome& outcome) {
  const CycleCount& counts = result.counts;
  std::string text =
      fmt::format("\ncycles   {}, {}\n", std::uint64_t{counts.cycles}, paceReport(result.pace));
  if (result.session.clock == Clock::realtime) {
    text += "latency  " + quantilesText(counts.latencies);
  }
  text += "duration " + quantilesText(counts.durations);
  return text + "\n" + valuesTable(result, outcome) + countsTable(outcome);
}

}  // namespace host
