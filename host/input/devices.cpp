#include "host/input/devices.h"

#include <fmt/format.h>

#include <limits>
#include <utility>
#include <variant>

#include "host/input/typedvalue.h"

namespace host {
namespace {

using Fields = YamlFile::Fields;

constexpr std::uint8_t lastTypeCode = std::numeric_limits<std::uint8_t>::max();

/// Reads the type and the value, and counts the texts.
template <typename Typed>
void readTypedValue(const YamlFile& yaml, const Fields& fields, const YAML::Node& node,
                    MachineDraft& draft, Typed& typed) {
  typed.typeCode = readTypeCode(yaml, yaml.required(fields, node, "type"), 0, lastTypeCode);
  typed.value = readValue(yaml, fields, typed.typeCode);
  const auto* const text = std::get_if<std::string>(&typed.value);
  draft.take(MachineDraft::Counted::textBytes,
             typed.name.size() + (text == nullptr ? 0 : text->size()), yaml.at(node));
}

void readAttribute(const YamlFile& yaml, const YAML::Node& node, MachineDraft& draft,
                   simulation::Container& device, NameTable& names) {
  const Fields fields = yaml.fields(node, "an attribute", {"name", "type", "value"});
  simulation::Attribute attribute;
  yaml.requiredField(fields, node, "name", [&](const YAML::Node& name) {
    attribute.name = yaml.name(name, "name");
    names.take(attribute.name, yaml.at(node), "attribute");
  });
  readTypedValue(yaml, fields, node, draft, attribute);
  device.attributes.push_back(std::move(attribute));
}

}  // namespace

void readDevice(const YamlFile& yaml, const YAML::Node& node, MachineDraft& draft) {
  const Fields fields = yaml.fields(node, "a device", {"name", "attributes"});
  simulation::Container device;
  yaml.requiredField(fields, node, "name", [&](const YAML::Node& name) {
    device.name = yaml.name(name, "name");
    draft.devices.take(device.name, yaml.at(name), "device");
  });
  NameTable names;
  for (const YAML::Node& entry : yaml.entries(fields, "attributes")) {
    draft.take(MachineDraft::Counted::attributes, 1, yaml.at(entry));
    yaml.attempt([&] { readAttribute(yaml, entry, draft, device, names); });
  }
  draft.model.description.containers.push_back(std::move(device));
}

void readPreference(const YamlFile& yaml, const YAML::Node& node, MachineDraft& draft) {
  const Fields fields =
      yaml.fields(node, "a preference", {"owner", "name", "type", "value", "in_use"});
  draft.take(MachineDraft::Counted::preferences, 1, yaml.at(node));
  simulation::Preference preference;
  yaml.requiredField(fields, node, "owner", [&](const YAML::Node& owner) {
    preference.owner = yaml.name(owner, "owner");
    draft.take(MachineDraft::Counted::textBytes, preference.owner.size(), yaml.at(node));
    if (!draft.devices.holds(preference.owner) && !draft.subDevices.holds(preference.owner)) {
      draft.failAsUnknown(
          yaml.at(owner),
          fmt::format("the machine has no device, actuator or sensor '{}'", preference.owner));
    }
  });
  yaml.requiredField(fields, node, "name",
                     [&](const YAML::Node& name) { preference.name = yaml.name(name, "name"); });
  yaml.field(fields, "in_use",
             [&](const YAML::Node& inUse) { preference.inUse = yaml.truth(inUse, "in_use"); });
  readTypedValue(yaml, fields, node, draft, preference);
  draft.model.description.preferences.push_back(std::move(preference));
}

}  // namespace host
