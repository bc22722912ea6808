#include "host/cli/recorded.h"

#include <fmt/format.h>

#include <utility>

#include "attrfullname/attrfullname.h"
#include "host/base/attributekey.h"
#include "host/base/values.h"
#include "platform/hal/devicemanager.h"
#include "registry/attrfullnamemanager.h"
#include "timedcommandmanager/timedcommandmanager.h"

namespace host {
namespace {

bool isNumber(const hal::DeviceAttrGeneric& attribute) {
  const ValueType type = valueType(attribute.typeCode);
  return type == ValueType::integer || type == ValueType::real;
}

/// Attributes with a number whose full or bare keys have the pattern.
std::vector<TracedColumn> attributesLike(const std::string& pattern) {
  std::vector<TracedColumn> found;
  const std::size_t count = getTimedCommandManager()->commandTable.size();
  for (std::size_t i = 0; i < count; ++i) {
    const int index = static_cast<int>(i);
    const std::string key = getAttrFullNameManager()->getAttributeNameWithIndex(index);
    const hal::DeviceAttrGeneric& attribute = *hal::getDeviceManager()->getAttrWithIndex(index);
    if (!key.empty() && isNumber(attribute) &&
        (isChosen(pattern, key) || isChosen(pattern, bareKey(key)))) {
      found.push_back({key, &attribute});
    }
  }
  if (found.empty()) {
    throw simulation::Error(fmt::format(
        "--record-attributes: no attribute with a number has a key like '{}'", pattern));
  }
  return found;
}

RecordingHead headOf(const std::string& title, const MachineModel& machine, const Plan& plan,
                     const Torvex& torvex) {
  RecordingHead head;
  head.machine = machine.name;
  head.title = title;
  head.isSimulated = torvex.result().session.clock == Clock::simulated;
  head.cycleMs = plan.schedule.cycleMs;
  head.approachMs = plan.schedule.approachMs;
  for (const TracedColumn& column : torvex.columns()) {
    head.columns.push_back(column.name);
  }
  for (const ShownAxis& shown : torvex.shownAxes()) {
    const simulation::Actuator& actuator = shown.axis.actuator;
    head.axes.push_back({actuator, valueKey(actuator), shown.commandColumn, shown.measuredColumn});
  }
  for (const ScheduledBatch& batch : plan.batches) {
    head.batches.push_back({modeName(*batch.commands), batch.commands->atMs});
  }
  return head;
}

}  // namespace

void addRecord(CLI::App& command, RecordOptions& options) {
  addOption(
      command,
      {"--record", "FILE.mcap", "Record values and events in this MCAP file, as they come", ""},
      options.path);
  addOption(
      command,
      {"--record-attributes", "PATTERN",
       "What is recorded beside commands and sensors, by key, as in the shell: '*/Current'", ""},
      options.attributes);
}

void addOutput(const RecordOptions& options, std::vector<NamedOutput>& outputs) {
  if (!options.path.empty()) {
    outputs.push_back({options.path, "recording"});
  } else if (!options.attributes.empty()) {
    throw simulation::Error("--record-attributes needs --record");
  }
}

void record(const RecordOptions& options, const std::string& title, const MachineModel& machine,
            const Plan& plan, Torvex& torvex, std::optional<Recorder>& recorder,
            Recorder::Failed failed) {
  RecordingHead head = headOf(title, machine, plan, torvex);
  if (!options.attributes.empty()) {
    const std::vector<TracedColumn> attributes = attributesLike(options.attributes);
    for (const TracedColumn& attribute : attributes) {
      head.attributes.push_back(attribute.name);
    }
    torvex.addColumns(attributes);
  }
  recorder.emplace(options.path, machine, std::move(head), std::move(failed));
  torvex.addListener(*recorder);
  torvex.addRows(recorder->rows());
}

}  // namespace host
