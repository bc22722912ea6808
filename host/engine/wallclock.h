#pragma once

#include <cstdint>

namespace host {

constexpr std::int64_t nsPerMs = 1'000'000;

/// The clock of the cycle: it never jumps, and goes on while the machine sleeps.
std::int64_t wallNs() noexcept;
void sleepUntil(std::int64_t timeNs) noexcept;

}  // namespace host
