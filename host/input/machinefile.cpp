#include "host/input/machinefile.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

#include "host/base/textfile.h"
#include "host/input/devices.h"
#include "host/input/subdevices.h"
#include "host/input/urdf.h"
#include "host/input/yaml.h"

namespace host {
namespace {

using Fields = YamlFile::Fields;

struct Section {
  const char* key;
  void (*readEntry)(const YamlFile& yaml, const YAML::Node& node, MachineDraft& draft);
  /// Others refer to the names of its entries.
  bool isReferredTo;
};

/// In the order of reading: what refers to others comes behind them.
constexpr Section sections[] = {
    {"joints", readJoint, false},           {"devices", readDevice, true},
    {"actuators", readActuator, true},      {"sensors", readSensor, true},
    {"preferences", readPreference, false},
};

void readUrdfNamedAt(const YamlFile& yaml, const YAML::Node& node, MachineDraft& draft) {
  const std::filesystem::path named = yaml.name(node, "urdf");
  const std::string path =
      (std::filesystem::path(yaml.path()).parent_path() / named).lexically_normal().string();
  std::string text;
  try {
    text = readFile(path, maxUrdfBytes);
  } catch (const UserError& error) {
    yaml.fail(node, fmt::format("the URDF cannot be taken: {}", error.what()));
  }
  addUrdf(path, text, draft);
}

/// Whether what refers to an entry of these can find its name.
bool areNamed(const YAML::Node& entries) {
  return entries.IsSequence() &&
         std::all_of(entries.begin(), entries.end(), [](const YAML::Node& entry) {
           const YAML::Node name = entry.IsMap() ? entry["name"] : YAML::Node();
           return name.IsDefined() && name.IsScalar() && !name.Scalar().empty();
         });
}

void readSection(const YamlFile& yaml, const Fields& fields, const Section& section,
                 MachineDraft& draft) {
  for (const YAML::Node& entry : yaml.entries(fields, section.key)) {
    yaml.attempt([&] { section.readEntry(yaml, entry, draft); });
  }
}

void readFields(const YamlFile& yaml, MachineDraft& draft) {
  const Fields fields = yaml.fields(yaml.root(), "the machine",
                                    {"name", "urdf", "time_constant", "approach_velocity", "joints",
                                     "devices", "actuators", "sensors", "preferences"});
  draft.namesAreComplete = yaml.field(
      fields, "urdf", [&](const YAML::Node& node) { readUrdfNamedAt(yaml, node, draft); });
  draft.model.paths.push_back(yaml.path());
  yaml.field(fields, "name",
             [&](const YAML::Node& node) { draft.model.name = yaml.name(node, "name"); });
  yaml.field(fields, "time_constant", [&](const YAML::Node& node) {
    draft.timeConstant = readTimeConstant(yaml, node);
    for (simulation::Sensor& sensor : draft.model.description.sensors) {
      sensor.timeConstant = draft.timeConstant;
    }
  });
  yaml.field(fields, "approach_velocity", [&](const YAML::Node& node) {
    draft.approachVelocity = readApproachVelocity(yaml, node);
  });
  for (const Section& section : sections) {
    const auto list = fields.find(section.key);
    draft.namesAreComplete =
        draft.namesAreComplete &&
        (!section.isReferredTo || list == fields.end() || areNamed(list->second));
  }
  for (const Section& section : sections) {
    yaml.attempt([&] { readSection(yaml, fields, section, draft); });
  }
}

MachineModel readYaml(const std::string& path, const std::string& text) {
  ErrorCollector errors;
  MachineDraft draft(errors);
  errors.attempt([&] {
    const YamlFile yaml(path, text, errors);
    const bool sound = yaml.attempt([&] { readFields(yaml, draft); });
    if (sound && draft.model.description.actuators.empty()) {
      yaml.fail(yaml.root(), "the machine has no actuator; give it a urdf or actuators");
    }
  });
  return draft.finish();
}

bool looksLikeXml(const std::string& text) {
  const std::size_t first = text.find_first_not_of(" \t\r\n\xEF\xBB\xBF");
  return first != std::string::npos && text[first] == '<';
}

}  // namespace

MachineModel readMachineFile(const std::string& path) {
  const std::string text = readFile(path, maxUrdfBytes);
  MachineModel machine = looksLikeXml(text) ? readUrdf(path, text) : readYaml(path, text);
  if (machine.name.empty()) {
    machine.name = std::filesystem::path(path).stem().string();
  }
  return machine;
}

}  // namespace host
