#pragma once

#include <string>

#include "simulation/machine.h"

/// What an action refuses, with an error of this kind; "accepted" when it does not.
template <typename Error = simulation::Error, typename Action>
std::string refusal(const Action& action) {
  try {
    action();
    return "accepted";
  } catch (const Error& error) {
    return error.what();
  }
}
