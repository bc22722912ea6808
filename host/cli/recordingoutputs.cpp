#include "host/cli/recordingoutputs.h"

#include <fmt/format.h>

#include <memory>
#include <utility>

#include "attrfullname/attrfullname.h"
#include "host/base/attributekey.h"
#include "host/base/values.h"
#include "host/cli/options.h"
#include "host/recording/journaljson.h"
#include "platform/hal/devicemanager.h"
#include "registry/attrfullnamemanager.h"
#include "timedcommandmanager/timedcommandmanager.h"

namespace host {
namespace {

constexpr std::size_t usualRingFiles = 100;

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
  head.columns = torvex.columnNames();
  for (const ShownAxis& shown : torvex.shownAxes()) {
    const simulation::Actuator& actuator = shown.axis.actuator;
    head.axes.push_back({actuator, valueKey(actuator), shown.commandColumn, shown.measuredColumn});
  }
  for (const ScheduledBatch& batch : plan.batches) {
    head.batches.push_back({modeName(*batch.commands), batch.commands->atMs});
  }
  return head;
}

void addJournal(const SessionOptions& session, RecordingHead& head) {
  head.journal = journalVersion;
  head.startTick = session.startTick;
  head.guard = session.guard;
}

}  // namespace

void addRecord(CLI::App& command, RecordOptions& options) {
  addOption(command, {"--record", "FILE.mcap", "Record values and events in this MCAP file", ""},
            options.path);
  addOption(command,
            {"--record-attributes", "PATTERN",
             "Further attributes to record, besides commands and sensors: a shell pattern of their "
             "keys, such as '*/Current'",
             ""},
            options.attributes);
  addOption(command,
            {"--record-ring", "SECONDS",
             "Keep the latest seconds of values and events in memory. Write them to a file after a "
             "stall, a hold, an intervention of the guard or a write by others, on SIGUSR1, or "
             "when a client asks",
             ""},
            [&options](const std::string& text) {
              options.ringSeconds = positiveNumber("--record-ring", text);
            });
  addOption(
      command,
      {"--record-folder", "DIR", "Folder for the files of the ring; created if it is missing", "."},
      options.ringFolder);
  addOption(
      command,
      {"--record-files", "COUNT", "The largest number of these files in one run",
       std::to_string(usualRingFiles)},
      [&options](const std::string& text) { options.ringFiles = count("--record-files", text); });
}

void addOutput(const RecordOptions& options, std::vector<NamedOutput>& outputs) {
  if (!options.path.empty()) {
    outputs.push_back({options.path, "recording"});
  }
  const bool hasRing = options.ringSeconds > 0.0;
  if (!options.attributes.empty() && options.path.empty() && !hasRing) {
    throw simulation::Error("--record-attributes needs --record or --record-ring");
  }
  if (!hasRing && (!options.ringFolder.empty() || options.ringFiles)) {
    throw simulation::Error(fmt::format("{} needs --record-ring", options.ringFolder.empty()
                                                                      ? "--record-files"
                                                                      : "--record-folder"));
  }
}

void record(const RecordOptions& options, const std::string& title, const MachineModel& machine,
            const Plan& plan, Torvex& torvex, Recordings& recordings,
            const Recorder::Failed& failed) {
  RecordingHead head = headOf(title, machine, plan, torvex);
  addJournal(torvex.result().session, head);
  if (!options.attributes.empty()) {
    const std::vector<TracedColumn> attributes = attributesLike(options.attributes);
    for (const TracedColumn& attribute : attributes) {
      head.attributes.push_back(attribute.name);
    }
    torvex.addColumns(attributes);
  }
  if (options.ringSeconds > 0.0) {
    const RingOptions ring{options.ringSeconds,
                           options.ringFolder.empty() ? "." : options.ringFolder,
                           options.ringFiles.value_or(usualRingFiles)};
    auto target = std::make_unique<FlightRecorder>(ring, machine, head);
    recordings.ring = target.get();
    recordings.latest.emplace(head, std::move(target), failed);
    torvex.addListener(*recordings.latest);
    torvex.addRows(recordings.latest->rows(), "ring");
    torvex.addJournalKeeper(*recordings.latest);
  }
  if (!options.path.empty()) {
    recordings.whole.emplace(options.path, machine, std::move(head), failed);
    torvex.addListener(*recordings.whole);
    torvex.addRows(recordings.whole->rows(), "recording");
    torvex.addJournalKeeper(*recordings.whole);
  }
}

}  // namespace host
