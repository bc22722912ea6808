#include "simulation/observer.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <thread>

#include "simulation/devicepool/guardedmapping.h"
#include "simulation/devicepool/poollayout.h"
#include "simulation/devicepool/segment.h"
#include "simulation/framework/descriptor.h"
#include "simulation/machine.h"

namespace simulation {
namespace {

/// Opens it without waiting, whatever kind of file it is.
Descriptor openedPool(const PoolPlace& place) {
  Descriptor pool(
      open(place.path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC));
  if (!pool.isOpen() && errno == ENOENT) {
    throw Error("there is no device pool " + place.path +
                "; start its machine first, or name the pool of one that runs");
  }
  struct stat found {};
  if (!pool.isOpen() || fstat(pool.number(), &found) != 0) {
    throw Error("cannot read the device pool " + place.path + ": " + std::strerror(errno));
  }
  if (!S_ISREG(found.st_mode)) {
    throw Error(place.path + " is not a device pool");
  }
  if (found.st_uid != place.user && found.st_uid != 0) {
    throw Error(place.path + " belongs to user " + nameOfUser(found.st_uid) +
                ", not to the user in its name");
  }
  return pool;
}

std::size_t sizeOf(const Descriptor& pool, const std::string& path) {
  struct stat found {};
  if (fstat(pool.number(), &found) != 0 || found.st_size < off_t{sizeof(PoolRecord)}) {
    throw Error(path + " is not a complete device pool");
  }
  return static_cast<std::size_t>(found.st_size);
}

}  // namespace

struct Observer::View {
  explicit View(const PoolPlace& place)
      : pool(openedPool(place)), mapping(pool.number(), sizeOf(pool, place.path)) {}

  Descriptor pool;
  GuardedMapping mapping;
  /// A copy from the beginning: what is written there later does not count.
  int attributeCount = 0;

  [[nodiscard]] const PoolRecord& record() const {
    return *static_cast<const PoolRecord*>(mapping.address());
  }

  /// Zeros in place of what was cut off lead to no other memory, so a check afterwards is enough.
  template <typename T>
  [[nodiscard]] T unlessCut(T read) const {
    if (mapping.isCut()) {
      throw Error("the device pool was cut short while it was read");
    }
    return read;
  }

  /// For an address outside the device pool, any number.
  [[nodiscard]] std::size_t offsetOf(const void* place) const {
    return reinterpret_cast<std::uintptr_t>(place) -
           reinterpret_cast<std::uintptr_t>(mapping.address());
  }
  template <typename T>
  [[nodiscard]] const T& recordAt(std::size_t offset) const {
    const std::size_t size = mapping.size();
    if (offset > size || size - offset < sizeof(T) || offset % alignof(T) != 0) {
      throw Error("the device pool is damaged: it refers to data outside itself");
    }
    return *reinterpret_cast<const T*>(static_cast<const char*>(mapping.address()) + offset);
  }
  [[nodiscard]] std::string textAt(std::size_t offset) const {
    constexpr std::size_t allTexts = std::size_t{64} << 20U;
    constexpr std::size_t anyText = 1024;
    const auto attributes = static_cast<std::size_t>(std::max(attributeCount, 1));
    const std::size_t longest = std::max(anyText, allTexts / attributes);
    const std::string_view all(static_cast<const char*>(mapping.address()), mapping.size());
    const std::string_view begin = all.substr(std::min(offset, all.size()), longest + 1);
    const std::size_t length = begin.find('\0');
    if (length == std::string_view::npos) {
      throw Error("the device pool is damaged: a text does not end in it, or is longer than " +
                  std::to_string(longest) + " bytes");
    }
    return unlessCut(std::string(begin.substr(0, length)));
  }

  [[nodiscard]] const hal::DeviceAttrGeneric& attribute(int index) const {
    if (index < 0 || index >= attributeCount) {
      throw unlessCut(Error("there is no attribute " + std::to_string(index)));
    }
    return recordAt<hal::DeviceAttrGeneric>(offsetOf(record().attributes.get()) +
                                            static_cast<std::size_t>(index) *
                                                sizeof(hal::DeviceAttrGeneric));
  }
  [[nodiscard]] const hal::AttributeContainer& container(int index) const {
    return recordAt<hal::AttributeContainer>(offsetOf(attribute(index).container.get()));
  }
  [[nodiscard]] hal::AttrGeneric value(int index) const {
    hal::AttrGeneric present;
    __atomic_load(&attribute(index).value, &present, __ATOMIC_ACQUIRE);
    return present;
  }

  /// False when a cycle was being written.
  bool copyCycle(PoolCycle& copy) const {
    const std::uint64_t before = __atomic_load_n(&record().sequence, __ATOMIC_ACQUIRE);
    copy.number = before / 2;
    copy.machineTimeMs = __atomic_load_n(&record().machineTimeMs, __ATOMIC_ACQUIRE);
    // Any number may lie there: from one that is not negative an age can be computed.
    copy.wallTimeNs =
        std::max<std::int64_t>(__atomic_load_n(&record().wallTimeNs, __ATOMIC_ACQUIRE), 0);
    copy.values.clear();
    for (int index = 0; index < attributeCount; ++index) {
      copy.values.push_back(value(index));
    }
    copy.isWhole =
        before % 2 == 0 && __atomic_load_n(&record().sequence, __ATOMIC_RELAXED) == before;
    return copy.isWhole;
  }

  void checkLayout(const std::string& path) {
    if (__atomic_load_n(&record().magic, __ATOMIC_ACQUIRE) != PoolRecord::expectedMagic) {
      throw Error(path + " is not a complete device pool");
    }
    if (record().layoutVersion != PoolRecord::expectedVersion) {
      throw Error(path + " has layout version " + std::to_string(record().layoutVersion) +
                  "; this program reads version " + std::to_string(PoolRecord::expectedVersion));
    }
    if (record().sizeBytes != mapping.size()) {
      throw Error(path + " has " + std::to_string(mapping.size()) + " bytes instead of " +
                  std::to_string(record().sizeBytes));
    }
    attributeCount = record().attributeCount;
  }
};

Observer::Observer(const std::string& poolName) {
  const PoolPlace place = placeOfPool(poolName);
  view_ = std::make_unique<View>(place);
  view_->checkLayout(place.path);
}

Observer::~Observer() = default;

bool Observer::isOwned() const {
  return simulation::isOwned(view_->pool);
}

int Observer::attributeCount() const {
  return view_->attributeCount;
}

std::string Observer::containerName(int index) const {
  return view_->textAt(view_->offsetOf(view_->container(index).name.get()));
}

std::string Observer::attributeName(int index) const {
  return view_->textAt(view_->offsetOf(view_->attribute(index).name.get()));
}

std::uint8_t Observer::containerKind(int index) const {
  return view_->unlessCut(view_->container(index).kind);
}

std::uint8_t Observer::typeCode(int index) const {
  return view_->unlessCut(view_->attribute(index).typeCode);
}

bool Observer::isCommand(int index) const {
  if (containerKind(index) != hal::subDeviceKind) {
    return false;
  }
  const hal::DeviceAttrGeneric& attribute = view_->attribute(index);
  const auto& subDevice =
      view_->recordAt<SubDeviceRecord>(view_->offsetOf(attribute.container.get()));
  // As a byte: what others wrote there may be no bool.
  const auto isActuator = __atomic_load_n(
      reinterpret_cast<const unsigned char*>(&subDevice.isActuator), __ATOMIC_RELAXED);
  return view_->unlessCut(isActuator != 0 && subDevice.value.get() == &attribute);
}

hal::AttrGeneric Observer::value(int index) const {
  return view_->unlessCut(view_->value(index));
}

PoolCycle Observer::copyCycle() const {
  constexpr int tries = 40;
  PoolCycle copy;
  for (int turn = 0; turn < tries && !view_->copyCycle(copy); ++turn) {
    std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
  struct stat present {};
  if (fstat(view_->pool.number(), &present) == 0 &&
      present.st_size < static_cast<off_t>(view_->mapping.size())) {
    throw Error("the device pool was cut short");
  }
  return view_->unlessCut(std::move(copy));
}

std::string Observer::text(const hal::AttrGeneric& value) const {
  return view_->textAt(value.asTextOffset);
}

}  // namespace simulation
