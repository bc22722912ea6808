#pragma once

#include <functional>
#include <list>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/hal/attributecontainer.h"
#include "platform/hal/deviceattrgeneric.h"
#include "platform/hal/devicepool.h"
#include "platform/zr/zrbroker.h"
#include "platform/zr/zrvalue.h"

/// Thrown by an operation that is to fail.
struct FakeFailure {};

struct FakeContainer : hal::SubDevice {
  bool actuator = false, interpolation = true;
  /// The command register, and the largest magnitude that it takes.
  float command = 0, limit = 1e30F;
  /// What each reading of the register adds to it.
  float drift = 0;
};

/// The platform of the process while it lives. Writes down, in order, what the
/// library asks of it: locks, value operations and look-ups. A lock that is taken
/// inside another shows in the calls.
struct FakePlatform {
  FakePlatform() { used = this; }

  /// A sub-device and the next attributes, all float; their names may be null.
  FakeContainer& add(const char* name, std::initializer_list<const char*> attributeNames);
  /// The next preference, without a value.
  hal::Preference& prefer(FakeContainer& owner, const char* name, std::uint8_t typeCode);
  /// Every operation passes here. The result is this platform, as that of `record`.
  FakePlatform& visit();
  FakePlatform& record(const std::string& call);
  /// For what must not throw.
  void note(const std::string& call);
  std::string take() { return std::exchange(calls, std::string()); }

  inline static FakePlatform* used = nullptr;
  /// Separated by spaces.
  std::string calls;
  /// Says of every operation whether it is to throw.
  bool (*fails)() = nullptr;
  int locksHeld = 0;
  /// Called as soon as a lock is held, and when it is given up.
  std::function<void()> locked = [] {}, unlocked = [] {};
  hal::DevicePool pool;
  std::map<int, hal::DeviceAttrGeneric> attributes;
  std::map<int, FakeContainer*> owners;
  /// In the order in which the library meets them: by name.
  std::map<std::string, FakeContainer> containers;
  std::list<hal::Preference> preferences;
  std::vector<boost::interprocess::offset_ptr<hal::Preference>> preferenceTable;
  /// What the preferences service was handed last.
  ZR::ZRValue written;
};

/// Writes down what it is asked for; its proxies write down when they end.
struct FakeBroker : ZR::ZRBroker {
  boost::shared_ptr<ZR::ZRProxy> getProxy(const std::string& moduleName, int option) override;
  boost::shared_ptr<ZR::ZRBroker> getThis() override { return nullptr; }
};

/// A call with a value, written so that no two numbers look alike.
std::string callWith(const char* name, float value);
