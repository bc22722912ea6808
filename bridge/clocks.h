#pragma once

#include <chrono>
#include <cstdint>
#include <ctime>

namespace bridge {

/// Nanoseconds since 1970.
inline std::int64_t wallNs() {
  return std::chrono::system_clock::now().time_since_epoch() / std::chrono::nanoseconds(1);
}

/// Nanoseconds, which also pass while the computer sleeps.
inline std::int64_t bootNs() {
  constexpr std::int64_t nsPerSecond = 1'000'000'000;
  timespec now{};
  clock_gettime(CLOCK_BOOTTIME, &now);
  return std::int64_t{now.tv_sec} * nsPerSecond + now.tv_nsec;
}

}  // namespace bridge
