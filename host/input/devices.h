#pragma once

#include "host/input/machinedraft.h"
#include "host/input/yaml.h"

namespace host {

/// Each reads an entry of a machine file into the draft. What stands for itself in it is
/// reported; throws `UserError` when the rest cannot be read.
void readDevice(const YamlFile& yaml, const YAML::Node& node, MachineDraft& draft);
/// The owner must have been read.
void readPreference(const YamlFile& yaml, const YAML::Node& node, MachineDraft& draft);

}  // namespace host
