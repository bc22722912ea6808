#pragma once

#include <boost/interprocess/offset_ptr.hpp>
#include <cstdint>

#include "platform/hal/attributecontainer.h"
#include "platform/hal/deviceattrgeneric.h"
#include "platform/hal/devicepool.h"

namespace simulation {

template <typename T>
using SharedPtr = boost::interprocess::offset_ptr<T>;

/// A sub-device in shared memory. The attributes that a sensor lacks are null.
struct SubDeviceRecord : hal::SubDevice {
  SharedPtr<hal::DeviceAttrGeneric> value;
  SharedPtr<hal::DeviceAttrGeneric> minimum;
  SharedPtr<hal::DeviceAttrGeneric> maximum;
  SharedPtr<hal::DeviceAttrGeneric> maximumVelocity;
  std::uint32_t limited = 0;
  std::uint32_t movedFromOutside = 0;
  bool isActuator = false;
  bool interpolates = false;
};

/// The head of the segment. `magic` is written last: a device pool without it is incomplete.
struct PoolRecord : hal::DevicePool {
  static constexpr std::uint64_t expectedMagic = 0x6c6f6f7078767274;  // "trvxpool"
  static constexpr std::uint32_t expectedVersion = 3;

  std::uint32_t layoutVersion = expectedVersion;
  std::uint64_t magic = 0;
  std::uint64_t sizeBytes = 0;
  /// Twice the number of cycles, and one more while one is being written.
  std::uint64_t sequence = 0;
  /// At the end of the latest cycle, as `PoolCycle` has it.
  std::int64_t machineTimeMs = 0;
  std::int64_t wallTimeNs = 0;
  std::int32_t containerCount = 0;
  std::int32_t subDeviceCount = 0;
  SharedPtr<hal::DeviceAttrGeneric> attributes;
  SharedPtr<hal::AttributeContainer> containers;
  SharedPtr<SubDeviceRecord> subDevices;
};

}  // namespace simulation
