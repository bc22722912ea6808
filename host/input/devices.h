#pragma once

#include "host/input/document.h"
#include "host/input/machinedraft.h"

namespace host {

/// Each reads an entry of a machine file into the draft. What stands for itself in it is
/// reported; throws `UserError` when the rest cannot be read.
void readDevice(const Document& document, const Node& node, MachineDraft& draft);
/// The owner must have been read.
void readPreference(const Document& document, const Node& node, MachineDraft& draft);

}  // namespace host
