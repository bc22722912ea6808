#include "simulation/observer.h"

#include <boost/interprocess/mapped_region.hpp>
#include <boost/interprocess/shared_memory_object.hpp>
#include <cstddef>
#include <string_view>

#include "simulation/devicepool/poollayout.h"
#include "simulation/devicepool/segment.h"
#include "simulation/machine.h"

namespace simulation {

namespace bip = boost::interprocess;

struct Observer::Mapping {
  bip::shared_memory_object object;
  bip::mapped_region region;

  [[nodiscard]] const PoolRecord& record() const {
    return *static_cast<const PoolRecord*>(region.get_address());
  }

  /// Of what does not lie in the pool, any number.
  [[nodiscard]] std::size_t offsetOf(const void* place) const {
    return reinterpret_cast<std::uintptr_t>(place) -
           reinterpret_cast<std::uintptr_t>(region.get_address());
  }
  template <typename T>
  [[nodiscard]] const T& recordAt(std::size_t offset) const {
    const std::size_t size = region.get_size();
    if (offset > size || size - offset < sizeof(T) || offset % alignof(T) != 0) {
      throw Error("the device pool is damaged: it points out of itself");
    }
    return *reinterpret_cast<const T*>(static_cast<const char*>(region.get_address()) + offset);
  }
  [[nodiscard]] std::string textAt(std::size_t offset) const {
    const std::string_view pool(static_cast<const char*>(region.get_address()), region.get_size());
    const std::size_t end = pool.find('\0', offset);
    if (end == std::string_view::npos) {
      throw Error("the device pool is damaged: a text does not end in it");
    }
    return std::string(pool.substr(offset, end - offset));
  }

  [[nodiscard]] const hal::DeviceAttrGeneric& attribute(int index) const {
    if (index < 0 || index >= record().attributeCount) {
      throw Error("there is no attribute " + std::to_string(index));
    }
    return recordAt<hal::DeviceAttrGeneric>(offsetOf(record().attributes.get()) +
                                            static_cast<std::size_t>(index) *
                                                sizeof(hal::DeviceAttrGeneric));
  }
  [[nodiscard]] const hal::AttributeContainer& container(int index) const {
    return recordAt<hal::AttributeContainer>(offsetOf(attribute(index).container.get()));
  }
};

namespace {

void checkLayout(const bip::mapped_region& region, const std::string& name) {
  const auto* record = static_cast<const PoolRecord*>(region.get_address());
  if (region.get_size() < sizeof(PoolRecord) ||
      __atomic_load_n(&record->magic, __ATOMIC_ACQUIRE) != PoolRecord::expectedMagic) {
    throw Error("/dev/shm/" + name + " is no complete device pool");
  }
  if (record->layoutVersion != PoolRecord::expectedVersion) {
    throw Error("/dev/shm/" + name + " has layout version " +
                std::to_string(record->layoutVersion) + "; this program reads version " +
                std::to_string(PoolRecord::expectedVersion));
  }
  if (record->sizeBytes != region.get_size()) {
    throw Error("/dev/shm/" + name + " has " + std::to_string(region.get_size()) +
                " bytes instead of " + std::to_string(record->sizeBytes));
  }
}

}  // namespace

Observer::Observer(const std::string& poolName) : mapping_(std::make_unique<Mapping>()) {
  const std::string name = segmentName(poolName);
  try {
    bip::shared_memory_object object(bip::open_only, name.c_str(), bip::read_only);
    bip::mapped_region region(object, bip::read_only);
    mapping_->object.swap(object);
    mapping_->region.swap(region);
  } catch (const bip::interprocess_exception& error) {
    if (error.get_error_code() == bip::not_found_error) {
      throw Error("there is no device pool /dev/shm/" + name +
                  "; start its machine first, or name the pool of one that runs");
    }
    throw Error("cannot read the device pool /dev/shm/" + name + ": " + error.what());
  }
  checkLayout(mapping_->region, name);
}

Observer::~Observer() = default;

bool Observer::isOwned() const {
  return simulation::isOwned(mapping_->object);
}

int Observer::attributeCount() const {
  return mapping_->record().attributeCount;
}

std::string Observer::containerName(int index) const {
  return mapping_->textAt(mapping_->offsetOf(mapping_->container(index).name.get()));
}

std::string Observer::attributeName(int index) const {
  return mapping_->textAt(mapping_->offsetOf(mapping_->attribute(index).name.get()));
}

std::uint8_t Observer::containerKind(int index) const {
  return mapping_->container(index).kind;
}

std::uint8_t Observer::typeCode(int index) const {
  return mapping_->attribute(index).typeCode;
}

hal::AttrGeneric Observer::value(int index) const {
  hal::AttrGeneric present;
  __atomic_load(&mapping_->attribute(index).value, &present, __ATOMIC_RELAXED);
  return present;
}

std::string Observer::text(const hal::AttrGeneric& value) const {
  return mapping_->textAt(value.asTextOffset);
}

}  // namespace simulation
