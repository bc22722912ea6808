#include "host/input/devices.h"

#include <fmt/format.h>

#include <limits>
#include <utility>
#include <variant>

#include "host/input/typedvalue.h"

namespace host {
namespace {

using Fields = Document::Fields;

constexpr std::uint8_t lastTypeCode = std::numeric_limits<std::uint8_t>::max();

/// Reads the type and the value, and counts the texts.
template <typename Typed>
void readTypedValue(const Document& document, const Fields& fields, const Node& node,
                    MachineDraft& draft, Typed& typed) {
  typed.typeCode = readTypeCode(document, document.required(fields, node, "type"), 0, lastTypeCode);
  typed.value = readValue(document, fields, typed.typeCode);
  const auto* const text = std::get_if<std::string>(&typed.value);
  draft.take(MachineDraft::Counted::textBytes,
             typed.name.size() + (text == nullptr ? 0 : text->size()), document.at(node));
}

void readAttribute(const Document& document, const Node& node, MachineDraft& draft,
                   simulation::Container& device, NameTable& names) {
  const Fields fields = document.fields(node, "an attribute", {"name", "type", "value"});
  simulation::Attribute attribute;
  document.requiredField(fields, node, "name", [&](const Node& name) {
    attribute.name = document.name(name, "name");
    names.take(attribute.name, document.at(node), "attribute");
  });
  readTypedValue(document, fields, node, draft, attribute);
  device.attributes.push_back(std::move(attribute));
}

}  // namespace

void readDevice(const Document& document, const Node& node, MachineDraft& draft) {
  const Fields fields = document.fields(node, "a device", {"name", "attributes"});
  simulation::Container device;
  document.requiredField(fields, node, "name", [&](const Node& name) {
    device.name = document.name(name, "name");
    draft.devices.take(device.name, document.at(name), "device");
  });
  NameTable names;
  for (const Node& entry : document.entries(fields, "attributes")) {
    draft.take(MachineDraft::Counted::attributes, 1, document.at(entry));
    document.attempt([&] { readAttribute(document, entry, draft, device, names); });
  }
  draft.model.description.containers.push_back(std::move(device));
}

void readPreference(const Document& document, const Node& node, MachineDraft& draft) {
  const Fields fields =
      document.fields(node, "a preference", {"owner", "name", "type", "value", "in_use"});
  draft.take(MachineDraft::Counted::preferences, 1, document.at(node));
  simulation::Preference preference;
  document.requiredField(fields, node, "owner", [&](const Node& owner) {
    preference.owner = document.name(owner, "owner");
    draft.take(MachineDraft::Counted::textBytes, preference.owner.size(), document.at(node));
    if (!draft.devices.holds(preference.owner) && !draft.subDevices.holds(preference.owner)) {
      draft.failAsUnknown(
          document.at(owner),
          fmt::format("the machine has no device, actuator or sensor '{}'", preference.owner));
    }
  });
  document.requiredField(fields, node, "name",
                         [&](const Node& name) { preference.name = document.name(name, "name"); });
  document.field(fields, "in_use",
                 [&](const Node& inUse) { preference.inUse = document.truth(inUse, "in_use"); });
  readTypedValue(document, fields, node, draft, preference);
  draft.model.description.preferences.push_back(std::move(preference));
}

}  // namespace host
