#pragma once

#include <cstdint>

namespace host {

constexpr std::int64_t nsPerMs = 1'000'000;
constexpr std::int64_t nsPerSecond = 1'000'000'000;
constexpr std::int64_t msPerSecond = 1000;

constexpr double inSeconds(std::int64_t milliseconds) {
  return static_cast<double>(milliseconds) / msPerSecond;
}

/// The clock of the cycle, in nanoseconds: it never jumps, and goes on while the computer sleeps.
/// May be called in the control cycle, and by a signal handler.
std::int64_t bootNs() noexcept;
/// Until that clock has come to this time.
void sleepUntil(std::int64_t timeNs) noexcept;

/// Nanoseconds since 1970. May jump.
std::int64_t wallNs() noexcept;

}  // namespace host
