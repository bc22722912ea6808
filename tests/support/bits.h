#pragma once

#include <cstdint>
#include <cstring>

/// Tells floats apart that compare as equal, and not-a-numbers.
inline std::uint32_t bitsOf(float value) {
  std::uint32_t bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

inline float floatOf(std::uint32_t bits) {
  float value = 0.0F;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}
