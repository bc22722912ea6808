#include "host/recording/recordinghead.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

#include "host/base/clocks.h"
#include "host/base/visible.h"

namespace host {
namespace {

constexpr char recordName[] = "torvex";
constexpr char headFormat[] = "1";
constexpr std::size_t mostColumns = std::size_t{2} * simulation::maxAttributes;

/// No fields of it are single numbers, so that limits stay as they are.
using WideJson = nlohmann::ordered_json;

WideJson limit(double value) {
  return std::isfinite(value) ? WideJson(value) : WideJson();
}

double limitIn(const WideJson& json, double otherwise) {
  return json.is_null() ? otherwise : json.get<double>();
}

WideJson axisJson(const RecordedAxis& axis) {
  const simulation::Actuator& actuator = axis.actuator;
  return {{"name", visible(actuator.name)},
          {"key", visible(axis.key)},
          {"type", actuator.typeCode},
          {"minimum", limit(actuator.minimum)},
          {"maximum", limit(actuator.maximum)},
          {"maximum_velocity", limit(double{actuator.maximumVelocity})},
          {"interpolates", actuator.interpolates},
          {"command", axis.commandColumn},
          {"measured", axis.measuredColumn ? WideJson(*axis.measuredColumn) : WideJson()}};
}

RecordedAxis axisFrom(const WideJson& json, std::size_t columns) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  RecordedAxis axis;
  axis.actuator.name = json.at("name").get<std::string>();
  axis.key = json.at("key").get<std::string>();
  axis.actuator.typeCode = json.at("type").get<std::uint8_t>();
  axis.actuator.minimum = limitIn(json.at("minimum"), -infinity);
  axis.actuator.maximum = limitIn(json.at("maximum"), infinity);
  axis.actuator.maximumVelocity =
      static_cast<float>(limitIn(json.at("maximum_velocity"), infinity));
  axis.actuator.interpolates = json.at("interpolates").get<bool>();
  axis.commandColumn = json.at("command").get<std::size_t>();
  if (!json.at("measured").is_null()) {
    axis.measuredColumn = json.at("measured").get<std::size_t>();
  }
  if (axis.commandColumn >= columns || axis.measuredColumn.value_or(0) >= columns) {
    throw RecordingFault("the recording names a column that it does not have");
  }
  return axis;
}

GuardMode guardFrom(const std::string& name) {
  const std::optional<GuardMode> guard = valueOf(guardModeWords, name);
  if (!guard) {
    throw RecordingFault("the recording was made with unknown options");
  }
  return *guard;
}

WideJson batchJson(const RecordedBatch& batch) {
  return {{"mode", batch.mode}, {"at_ms", batch.atMs ? WideJson(*batch.atMs) : WideJson()}};
}

WideJson namesJson(const std::vector<std::string>& names) {
  WideJson json = WideJson::array();
  for (const std::string& name : names) {
    json.push_back(visible(name));
  }
  return json;
}

/// Milliseconds, few enough to compute with.
std::int64_t numberFrom(const std::string& text) {
  constexpr std::int64_t most = std::int64_t{1} << 31;
  const std::int64_t number = std::stoll(text);
  if (number < 0 || number > most) {
    throw RecordingFault("a time of the recording is out of range");
  }
  return number;
}

/// What a recording with a journal has beside.
void addJournal(const RecordingHead& head, McapTexts& values) {
  if (head.journal) {
    values["journal"] = std::to_string(*head.journal);
    values["start_tick"] = std::to_string(head.startTick);
    values["guard"] = wordFor(guardModeWords, head.guard);
  }
}

void readJournal(const McapTexts& values, RecordingHead& head) {
  const auto version = values.find("journal");
  if (version != values.end()) {
    head.journal = static_cast<std::uint32_t>(std::stoul(version->second));
    head.startTick = static_cast<std::uint32_t>(std::stoul(values.at("start_tick")));
    head.guard = guardFrom(values.at("guard"));
  }
}

void readLayout(const WideJson& layout, RecordingHead& head) {
  head.columns = layout.at("columns").get<std::vector<std::string>>();
  if (head.columns.size() > mostColumns) {
    throw RecordingFault("the recording has too many columns");
  }
  head.attributes = layout.at("attributes").get<std::vector<std::string>>();
  for (const WideJson& axis : layout.at("axes")) {
    head.axes.push_back(axisFrom(axis, head.columns.size()));
  }
  for (const WideJson& batch : layout.at("batches")) {
    RecordedBatch& added = head.batches.emplace_back();
    added.mode = batch.at("mode").get<std::string>();
    if (!batch.at("at_ms").is_null()) {
      added.atMs = batch.at("at_ms").get<std::int64_t>();
    }
  }
}

}  // namespace

std::uint64_t RecordingHead::timeNs(std::int64_t machineMs) const {
  return originNs +
         static_cast<std::uint64_t>(std::max(machineMs, std::int64_t{0})) * std::uint64_t{nsPerMs};
}

std::int64_t RecordingHead::machineMs(std::uint64_t timeNs) const {
  return timeNs < originNs
             ? 0
             : static_cast<std::int64_t>((timeNs - originNs) / std::uint64_t{nsPerMs});
}

McapMetadata RecordingHead::metadata() const {
  WideJson layout = {{"columns", namesJson(columns)}, {"attributes", namesJson(attributes)}};
  layout["axes"] = WideJson::array();
  for (const RecordedAxis& axis : axes) {
    layout["axes"].push_back(axisJson(axis));
  }
  layout["batches"] = WideJson::array();
  for (const RecordedBatch& batch : batches) {
    layout["batches"].push_back(batchJson(batch));
  }
  McapMetadata metadata{recordName,
                        {{"format", headFormat},
                         {"machine", visible(machine)},
                         {"title", visible(title)},
                         {"clock", isSimulated ? "simulated" : "realtime"},
                         {"cycle_ms", std::to_string(cycleMs)},
                         {"approach_ms", std::to_string(approachMs)},
                         {"origin_ns", std::to_string(originNs)},
                         {"layout", layout.dump()}}};
  if (!beginsAtStart()) {
    metadata.values.insert({{"trigger", trigger},
                            {"trigger_ms", std::to_string(triggerMs)},
                            {"left_out", std::to_string(leftOut)}});
  }
  addJournal(*this, metadata.values);
  return metadata;
}

std::optional<RecordingHead> RecordingHead::from(const McapMetadata& metadata) {
  if (metadata.name != recordName) {
    return std::nullopt;
  }
  try {
    const McapTexts& values = metadata.values;
    if (values.at("format") != headFormat) {
      throw RecordingFault("the recording is of a later version of torvex");
    }
    RecordingHead head;
    head.machine = values.at("machine");
    head.title = values.at("title");
    head.isSimulated = values.at("clock") == "simulated";
    head.cycleMs = numberFrom(values.at("cycle_ms"));
    head.approachMs = numberFrom(values.at("approach_ms"));
    head.originNs = std::stoull(values.at("origin_ns"));
    readLayout(WideJson::parse(values.at("layout")), head);
    readJournal(values, head);
    if (const auto trigger = values.find("trigger"); trigger != values.end()) {
      head.trigger = trigger->second;
      head.triggerMs = std::stoll(values.at("trigger_ms"));
      head.leftOut = std::stoull(values.at("left_out"));
    }
    return head;
  } catch (const RecordingFault&) {
    throw;
  } catch (const std::exception&) {
    throw RecordingFault("the description of the recording is damaged");
  }
}

bool isCommandColumn(const std::string& column) {
  return column.substr(column.rfind('/') + 1) == "command";
}

std::string nameOfColumn(const std::string& column) {
  return column.substr(0, column.rfind('/'));
}

}  // namespace host
