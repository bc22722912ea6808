#pragma once

#include <cstdint>
#include <deque>
#include <initializer_list>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/hal/attributecontainer.h"
#include "platform/hal/deviceattrgeneric.h"
#include "platform/hal/devicepool.h"

/// Thrown by the operation that a test has chosen to fail.
struct FakeFailure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct FakeContainer : hal::SubDevice {
  bool actuator = false;
  bool interpolation = true;
  /// The command register; while `readings` lasts, that is read instead.
  float command = 0.0F;
  std::deque<float> readings;
  float minimum = std::numeric_limits<float>::lowest();
  float maximum = std::numeric_limits<float>::max();
};

/// The platform of the process while it lives. Writes down, in order, what the
/// library asks of it: locks, value operations and look-ups. A lock taken twice,
/// or still held at the end, fails the test.
class FakePlatform {
 public:
  FakePlatform();
  ~FakePlatform();
  FakePlatform(const FakePlatform&) = delete;
  FakePlatform& operator=(const FakePlatform&) = delete;

  /// Attributes are named as given, null included, and float to begin with.
  FakeContainer& add(const char* name, std::initializer_list<const char*> attributeNames,
                     std::uint8_t kind = hal::subDeviceKind);
  FakeContainer& addActuator(const char* name, std::initializer_list<const char*> attributeNames);
  void record(const std::string& call);
  /// The calls since the last time, separated by commas.
  std::string take();

  /// Any call whose text holds this throws; nothing does while it is empty.
  std::string failing;
  bool recording = true;
  int locksHeld = 0;
  hal::DevicePool pool;
  std::deque<FakeContainer> containers;
  std::deque<hal::DeviceAttrGeneric> attributes;

 private:
  std::string calls_;
};

/// All digits that tell one float from another.
std::string textOf(float value);
