#pragma once

#include "simulation/machine.h"

// The machine of the threads test, as its own process and the reader know it: a stepping
// actuator that all command threads share, one that another party sets without a pause, and
// one that interpolates, with a sensor, that all share.

constexpr int merged = 0, restless = 1, swayed = 2, actuators = 3;

/// A stepper's value tells its actuator and its stamp: half of one and half of another
/// fit no actuator.
inline hal::AttrGeneric recordOf(int actuator, std::uint32_t stamp) {
  const std::uint32_t check = (stamp + 1) * 2654435761U ^ static_cast<std::uint32_t>(actuator);
  hal::AttrGeneric record;
  record.asTextOffset = std::uint64_t{check} << 32 | stamp;
  return record;
}

inline std::uint32_t stampIn(const hal::AttrGeneric& record) {
  return static_cast<std::uint32_t>(record.asTextOffset);
}

/// Whether the actuator may have this value: the swayed one stays in a range of its own.
inline bool isSound(int actuator, const hal::AttrGeneric& value) {
  return actuator == swayed
             ? value.asTextOffset >> 32 == 0 && value.asFloat >= static_cast<float>(swayed) &&
                   value.asFloat <= static_cast<float>(swayed + 1)
             : value.asTextOffset == recordOf(actuator, stampIn(value)).asTextOffset;
}

/// Reads the pool of this name until its machine ends. Writes a byte to standard output
/// as soon as every value has moved; the result is 0 when all were sound.
int readPool(const char* poolName);
