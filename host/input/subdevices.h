#pragma once

#include "host/input/document.h"
#include "host/input/machinedraft.h"

namespace host {

/// Each reads an entry of a machine file into the draft. What stands for itself in it is
/// reported; throws `UserError` when the rest cannot be read.
void readJoint(const Document& document, const Node& node, MachineDraft& draft);
void readActuator(const Document& document, const Node& node, MachineDraft& draft);
void readSensor(const Document& document, const Node& node, MachineDraft& draft);

/// Seconds of a sensor's lag.
double readTimeConstant(const Document& document, const Node& node);
/// Units a second.
double readApproachVelocity(const Document& document, const Node& node);
/// Units a second squared.
double readMaximumAcceleration(const Document& document, const Node& node);

}  // namespace host
