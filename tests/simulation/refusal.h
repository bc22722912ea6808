#pragma once

#include <string>

#include "simulation/machine.h"

/// What an action refuses; "accepted" when it does not.
template <typename Action>
std::string refusal(const Action& action) {
  try {
    action();
    return "accepted";
  } catch (const simulation::Error& error) {
    return error.what();
  }
}
