#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "host/engine/guard.h"
#include "host/engine/pacer.h"

namespace host {

/// How a machine is brought up.
struct EngineOptions {
  /// The device pool's name in shared memory; empty: no other process sees it.
  std::string poolName{};
  /// Who may read it, as `simulation::Machine` takes it.
  std::optional<std::uint32_t> poolMode = std::nullopt;
  std::string preferenceDirectory = ".";
  /// The tick, in milliseconds modulo 2^32, of machine time 0.
  std::uint32_t startTick = 0;
  /// What machine time does after the process was held up.
  Late late = Late::stand;
  /// What is done about a step beyond a maximum velocity.
  GuardMode guard = GuardMode::hold;
};

}  // namespace host
