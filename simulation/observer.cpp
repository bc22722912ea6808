#include "simulation/observer.h"

#include <boost/interprocess/mapped_region.hpp>
#include <boost/interprocess/shared_memory_object.hpp>

#include "simulation/machine.h"
#include "simulation/poollayout.h"
#include "simulation/segment.h"

namespace simulation {

namespace bip = boost::interprocess;

struct Observer::Mapping {
  bip::mapped_region region;

  [[nodiscard]] const PoolRecord& record() const {
    return *static_cast<const PoolRecord*>(region.get_address());
  }
  [[nodiscard]] const hal::DeviceAttrGeneric& attribute(int index) const {
    if (index < 0 || index >= record().attributeCount) {
      throw Error("there is no attribute " + std::to_string(index));
    }
    return record().attributes[index];
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
    const bip::shared_memory_object object(bip::open_only, name.c_str(), bip::read_only);
    bip::mapped_region region(object, bip::read_only);
    mapping_->region.swap(region);
  } catch (const bip::interprocess_exception& error) {
    throw Error("cannot read the device pool /dev/shm/" + name + ": " + error.what());
  }
  checkLayout(mapping_->region, name);
}

Observer::~Observer() = default;

int Observer::attributeCount() const {
  return mapping_->record().attributeCount;
}

std::string Observer::containerName(int index) const {
  return mapping_->attribute(index).container->name.get();
}

std::string Observer::attributeName(int index) const {
  return mapping_->attribute(index).name.get();
}

std::uint8_t Observer::typeCode(int index) const {
  return mapping_->attribute(index).typeCode;
}

hal::AttrGeneric Observer::value(int index) const {
  hal::AttrGeneric present;
  __atomic_load(&mapping_->attribute(index).value, &present, __ATOMIC_RELAXED);
  return present;
}

}  // namespace simulation
