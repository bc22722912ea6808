#include "host/cli/recordings/plotcommand.h"

#include <cmath>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/base/outputpaths.h"
#include "host/base/usererror.h"
#include "host/base/values.h"
#include "host/cli/recordings/faults.h"
#include "host/engine/runresult.h"
#include "host/recording/recordedrun.h"
#include "host/results/eventjson.h"
#include "host/results/plot/plot.h"
#include "host/results/runlog.h"

namespace host {
namespace {

struct PlotOptions {
  std::string recordingPath;
  std::string picturePath;
  PictureOptions picture;
};

/// As far as a picture shows batches.
Plan planOf(const RecordingHead& head) {
  Plan plan;
  plan.schedule.cycleMs = static_cast<std::uint32_t>(head.cycleMs);
  plan.schedule.approachMs = static_cast<std::uint32_t>(head.approachMs);
  for (const RecordedBatch& recorded : head.batches) {
    const auto batch = std::make_shared<CommandBatch>();
    batch->isStop = recorded.mode == "stop";
    batch->mode = valueOf(modeWords, recorded.mode).value_or(TimedCommand::MERGE);
    if (recorded.atMs) {
      batch->atMs = static_cast<std::uint32_t>(*recorded.atMs);
    }
    plan.batches.emplace_back().commands = batch;
  }
  return plan;
}

void addAxes(const RecordingHead& head, RunResult& result) {
  for (const RecordedAxis& axis : head.axes) {
    AxisResult& added = result.axes.emplace_back();
    added.actuator = axis.actuator;
    added.index = static_cast<int>(result.axes.size()) - 1;
    added.commandColumn = axis.commandColumn;
    added.measuredColumn = axis.measuredColumn;
  }
}

std::vector<Point> pointsOf(const Json& json, const simulation::Actuator& actuator) {
  std::vector<Point> points;
  for (const Json& each : json) {
    Point& point = points.emplace_back();
    constexpr double mostMs = 1e15;
    const auto timeMs = each.at("machine_ms").get<std::int64_t>();
    if (std::abs(static_cast<double>(timeMs)) > mostMs) {
      throw RecordingFault("a time of an event is out of range");
    }
    point.timeMs = timeMs;
    if (valueType(actuator.typeCode) == ValueType::real) {
      point.value.asFloat = each.at("value").get<float>();
    } else {
      point.value.asInt = each.at("value").get<std::int32_t>();
    }
  }
  return points;
}

/// What a picture shows of events is logged as in the run.
void logEvent(const Json& json, const RecordingHead& head, RunLog& log) {
  const std::string kind = json.value("kind", "");
  const std::string key = json.value("key", "");
  Event event;
  for (const EventKind shown :
       {EventKind::taken, EventKind::reached, EventKind::cleared, EventKind::limited}) {
    event.kind = kind == kindName(shown) ? shown : event.kind;
  }
  for (std::size_t i = 0; i < head.axes.size(); ++i) {
    event.actuator = head.axes[i].key == key ? static_cast<int>(i) : event.actuator;
  }
  if (kind != kindName(event.kind) || event.actuator < 0) {
    return;
  }
  event.batch = json.value("batch", Event::byOthers);
  event.count = json.value("count", std::uint64_t{0});
  event.byBatch = json.value("ended", false) ? Event::byHost : Event::byOthers;
  const auto& actuator = head.axes[static_cast<std::size_t>(event.actuator)].actuator;
  const std::vector<Point> points = pointsOf(json.value("points", Json::array()), actuator);
  log.tell(event, points.size() == event.count ? points.data() : nullptr);
}

int plot(const PlotOptions& options) {
  checkOutputs({{options.picturePath, "picture"}}, {options.recordingPath});
  std::int64_t rows = 0;
  RecordedRun::Handler counter;
  counter.row = [&](const std::vector<double>&) { ++rows; };
  const RecordingHead head = RecordedRun::read(options.recordingPath, counter).head;
  if (rows == 0) {
    throw UserError(options.recordingPath, {}, "holds no cycle to draw");
  }
  const Plan plan = planOf(head);
  Plot picture(options.picturePath, head.title, plan, options.picture);

  RunResult result({}, SampleHistory(head.columns.size(), rows + 1));
  addAxes(head, result);
  RunLog log;
  std::vector<double> last;
  RecordedRun::Handler handler;
  handler.row = [&](const std::vector<double>& row) {
    result.history.add(row);
    last = row;
  };
  handler.event = [&](const Json& event) { logEvent(event, head, log); };
  const RecordedRun run = RecordedRun::read(options.recordingPath, handler);
  if (!last.empty()) {
    result.history.addLast(last);
  }
  picture.draw(result, log);
  complainOfFaults(options.recordingPath, run.end.faults);
  return readingStatus(run);
}

}  // namespace

void addPlotCommand(CLI::App& app, Command& chosen) {
  const auto options = std::make_shared<PlotOptions>();
  CLI::App& command = addSubcommand(
      app, "plot", "Draw a recording (needs gnuplot)",
      "Example:\n"
      "  torvex plot wave.mcap wave.svg\n\n"
      "The picture is the same as that of 'torvex run --plot'.\n\n"
      "Exit status: 0; 1 if the recording is cut or damaged (the readable part is drawn); 2 for "
      "bad\n"
      "input or wrong usage.",
      [options] { return plot(*options); }, chosen);
  addArgument(command, "RECORDING", options->recordingPath, "An MCAP file that --record wrote");
  addArgument(command, "FILE.svg", options->picturePath, "The picture to write");
  addFlag(command, "--plot-velocity", options->picture.velocities,
          "Draw commanded velocities as well");
  addOption(
      command,
      {"--joints", "PATTERN", "Which actuators are drawn: a shell pattern of their names", "*"},
      options->picture.joints);
}

}  // namespace host
