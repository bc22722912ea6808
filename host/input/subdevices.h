#pragma once

#include "host/input/machinedraft.h"
#include "host/input/yaml.h"

namespace host {

/// Each reads an entry of a machine file into the draft. What stands for itself in it is
/// reported; throws `UserError` when the rest cannot be read.
void readJoint(const YamlFile& yaml, const YAML::Node& node, MachineDraft& draft);
void readActuator(const YamlFile& yaml, const YAML::Node& node, MachineDraft& draft);
void readSensor(const YamlFile& yaml, const YAML::Node& node, MachineDraft& draft);

/// Seconds of a sensor's lag.
double readTimeConstant(const YamlFile& yaml, const YAML::Node& node);
/// Units a second.
double readApproachVelocity(const YamlFile& yaml, const YAML::Node& node);

}  // namespace host
