#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "attrfullname/attrfullname.h"
#include "host/base/usererror.h"
#include "host/input/machinemodel.h"
#include "platform/hal/devicemanager.h"
#include "simulation/machine.h"

/// Ends the process when something does not hold: the fuzzer then keeps the input.
inline void require(bool holds, const std::string& what) {
  if (!holds) {
    std::fprintf(stderr, "does not hold: %s\n", what.c_str());
    std::abort();
  }
}

/// Runs `read` on this text, which stands in the file at `path`: a refusal must name a
/// place in it.
template <typename Read>
void take(const std::string& path, const std::string& text, const Read& read) {
  try {
    read();
  } catch (const host::UserError& error) {
    const std::string said = error.what();
    unsigned long line = 0, column = 0;
    int end = 0;
    require(said.rfind(path, 0) == 0, said);
    std::sscanf(said.c_str() + path.size(), ":%lu:%lu: error: %n", &line, &column, &end);
    require(end > 0 && path.size() + static_cast<std::size_t>(end) < said.size(), said);
    const auto lines = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
    // The YAML parser turns UTF-16 into UTF-8, and counts two columns behind the end.
    require(line >= 1 && line <= lines && column >= 1 && column <= 3 * text.size() + 2, said);
  }
}

/// What was read must make a machine whose actuators are found by their keys.
inline void requireSound(const host::MachineModel& machine) {
  const simulation::Machine simulated("", machine.description);
  AttrFullName names;
  names.initNameList(0);
  int next = 0;
  for (const simulation::Actuator& actuator : machine.description.actuators) {
    const int index = names.getAttributeIndexWithName(host::valueKey(actuator));
    require(index >= 0 && hal::getDeviceManager()->getAttrWithIndex(index) ==
                              &simulated.actuatorValue(next++),
            "the key of " + actuator.name);
  }
}
