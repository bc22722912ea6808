#include "host/input/machinefile.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

#include "host/base/textfile.h"
#include "host/input/devices.h"
#include "host/input/document.h"
#include "host/input/subdevices.h"
#include "host/input/urdf.h"

namespace host {
namespace {

using Fields = Document::Fields;

struct Section {
  const char* key;
  void (*readEntry)(const Document& document, const Node& node, MachineDraft& draft);
  /// Others refer to the names of its entries.
  bool isReferredTo;
};

/// In the order of reading: what refers to others comes behind them.
constexpr Section sections[] = {
    {"joints", readJoint, false},           {"devices", readDevice, true},
    {"actuators", readActuator, true},      {"sensors", readSensor, true},
    {"preferences", readPreference, false},
};

void readUrdfNamedAt(const Document& document, const Node& node, MachineDraft& draft) {
  const std::filesystem::path named = document.name(node, "urdf");
  const std::string path =
      (std::filesystem::path(document.path()).parent_path() / named).lexically_normal().string();
  std::string text;
  try {
    text = draft.textOf(path);
  } catch (const UserError& error) {
    document.fail(node, fmt::format("the URDF cannot be used: {}", error.what()));
  }
  addUrdf(path, text, draft);
}

/// Whether what refers to an entry of these can find its name.
bool areNamed(const Node& entries) {
  return entries.isList() &&
         std::all_of(entries.items().begin(), entries.items().end(), [](const Node& entry) {
           const Node* const name = entry.isMap() ? entry.find("name") : nullptr;
           return name != nullptr && name->isScalar() && !name->scalar().empty();
         });
}

void readSection(const Document& document, const Fields& fields, const Section& section,
                 MachineDraft& draft) {
  for (const Node& entry : document.entries(fields, section.key)) {
    document.attempt([&] { section.readEntry(document, entry, draft); });
  }
}

void refuseMotion(const Document& document) {
  const Node& root = document.root();
  const auto has = [&root](const char* key) { return root.find(key) != nullptr; };
  if (root.isMap() && !has("urdf") && !has("actuators") &&
      (has("joint_names") || has("batches") || has("lists") || has("motions"))) {
    document.fail(root, "this is a motion file; the machine is needed here, before the motions");
  }
}

void readFields(const Document& document, MachineDraft& draft) {
  refuseMotion(document);
  const Fields fields =
      document.fields(document.root(), "the machine",
                      {"name", "urdf", "time_constant", "approach_velocity", "maximum_acceleration",
                       "joints", "devices", "actuators", "sensors", "preferences"});
  draft.namesAreComplete = document.field(
      fields, "urdf", [&](const Node& node) { readUrdfNamedAt(document, node, draft); });
  draft.model.paths.push_back(document.path());
  document.field(fields, "name",
                 [&](const Node& node) { draft.model.name = document.name(node, "name"); });
  document.field(fields, "time_constant", [&](const Node& node) {
    draft.timeConstant = readTimeConstant(document, node);
    for (simulation::Sensor& sensor : draft.model.description.sensors) {
      sensor.timeConstant = draft.timeConstant;
    }
  });
  document.field(fields, "approach_velocity", [&](const Node& node) {
    draft.approachVelocity = readApproachVelocity(document, node);
  });
  document.field(fields, "maximum_acceleration", [&](const Node& node) {
    draft.maximumAcceleration = readMaximumAcceleration(document, node);
  });
  for (const Section& section : sections) {
    const auto list = fields.find(section.key);
    draft.namesAreComplete =
        draft.namesAreComplete &&
        (!section.isReferredTo || list == fields.end() || areNamed(list->second));
  }
  for (const Section& section : sections) {
    document.attempt([&] { readSection(document, fields, section, draft); });
  }
}

MachineModel readYaml(const std::string& path, const std::string& text,
                      const MachineDraft::TextOf& textOf) {
  ErrorCollector errors;
  MachineDraft draft(errors, textOf);
  errors.attempt([&] {
    const Document document(path, text, errors);
    const bool sound = document.attempt([&] { readFields(document, draft); });
    if (sound && draft.model.description.actuators.empty()) {
      document.fail(document.root(), "the machine has no actuator; give it a urdf or actuators");
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
  return readMachine(path, [](const std::string& each) { return readFile(each, maxUrdfBytes); });
}

MachineModel readMachine(const std::string& path, const MachineDraft::TextOf& textOf) {
  const std::string text = textOf(path);
  MachineModel machine = looksLikeXml(text) ? readUrdf(path, text) : readYaml(path, text, textOf);
  if (machine.name.empty()) {
    machine.name = std::filesystem::path(path).stem().string();
  }
  return machine;
}

}  // namespace host
