#pragma once

#include <string>

#include "host/engine/sessionoptions.h"

namespace host {

/// The device pool of a machine whose user names none: the machine's name, with "_" for what no
/// pool name may have.
std::string poolNameFor(const std::string& machineName);

/// The same for a session, if its user names none. In simulated time it has a pool that no other
/// process sees.
void choosePool(SessionOptions& session, const std::string& machineName);

/// The device pool of the only machine that this user runs. Throws `simulation::Error` when none
/// does, or more than one.
std::string onlyPool();

}  // namespace host
