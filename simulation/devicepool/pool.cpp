#include "simulation/devicepool/pool.h"

#include <cstring>
#include <ctime>
#include <map>
#include <new>

namespace simulation {
namespace {

Pool* gCurrentPool = nullptr;

std::size_t segmentSize(const MachineDescription& description, const PoolSize& size) {
  constexpr std::size_t paddingBetweenTables = 6 * alignof(std::max_align_t);
  const std::size_t subDevices = description.actuators.size() + description.sensors.size();
  return sizeof(PoolRecord) + size.attributes * sizeof(hal::DeviceAttrGeneric) +
         description.containers.size() * sizeof(hal::AttributeContainer) +
         subDevices * sizeof(SubDeviceRecord) +
         description.preferences.size() *
             (sizeof(hal::Preference) + sizeof(SharedPtr<hal::Preference>)) +
         size.textBytes + paddingBetweenTables;
}

}  // namespace

Pool& currentPool() {
  if (gCurrentPool == nullptr) {
    throw Error("this process has no simulated machine");
  }
  return *gCurrentPool;
}

void setCurrentPool(Pool* pool) noexcept {
  gCurrentPool = pool;
}

bool hasCurrentPool() noexcept {
  return gCurrentPool != nullptr;
}

Pool::Pool(const std::string& poolName, const MachineDescription& description,
           std::optional<std::uint32_t> mode)
    : Pool(poolName, description, mode, checkDescription(description)) {}

Pool::Pool(const std::string& poolName, const MachineDescription& description,
           std::optional<std::uint32_t> mode, PoolSize size)
    : segment_(poolName, segmentSize(description, size), mode),
      record_(carve<PoolRecord>(1)),
      actuatorCount_(description.actuators.size()) {
  record_->attributes = carve<hal::DeviceAttrGeneric>(size.attributes);
  record_->containers = carve<hal::AttributeContainer>(description.containers.size());
  record_->subDevices = carve<SubDeviceRecord>(actuatorCount_ + description.sensors.size());
  const std::size_t preferences = description.preferences.size();
  record_->preferences = carve<SharedPtr<hal::Preference>>(preferences);
  auto* const preference = carve<hal::Preference>(preferences);
  for (std::size_t i = 0; i < preferences; ++i) {
    record_->preferences[static_cast<std::ptrdiff_t>(i)] = preference + i;
  }
  text_ = carve<char>(size.textBytes);
  for (const Container& container : description.containers) {
    addContainer(container);
  }
  for (const Actuator& actuator : description.actuators) {
    addActuator(actuator);
  }
  for (const Sensor& sensor : description.sensors) {
    addSensor(sensor);
  }
  addPreferences(description.preferences);
  record_->sizeBytes = segmentSize(description, size);
}

void Pool::publish() noexcept {
  __atomic_store_n(&record_->magic, PoolRecord::expectedMagic, __ATOMIC_RELEASE);
}

// All values of this cycle are stored with release. So a reader that sees one of them sees this,
// too.
void Pool::beginCycle() noexcept {
  const std::uint64_t sequence = __atomic_load_n(&record_->sequence, __ATOMIC_RELAXED);
  __atomic_store_n(&record_->sequence, sequence | 1U, __ATOMIC_RELAXED);
}

void Pool::endCycle(std::int64_t machineTimeMs) noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  constexpr std::int64_t nsPerSecond = 1'000'000'000;
  __atomic_store_n(&record_->machineTimeMs, machineTimeMs, __ATOMIC_RELEASE);
  __atomic_store_n(&record_->wallTimeNs, now.tv_sec * nsPerSecond + now.tv_nsec, __ATOMIC_RELEASE);
  const std::uint64_t sequence = __atomic_load_n(&record_->sequence, __ATOMIC_RELAXED);
  __atomic_store_n(&record_->sequence, (sequence | 1U) + 1, __ATOMIC_RELEASE);
}

template <typename T>
T* Pool::carve(std::size_t count) {
  used_ = (used_ + alignof(T) - 1) / alignof(T) * alignof(T);
  char* const begin = static_cast<char*>(segment_.address()) + used_;
  used_ += count * sizeof(T);
  for (std::size_t i = 0; i < count; ++i) {
    new (begin + i * sizeof(T)) T();
  }
  return std::launder(reinterpret_cast<T*>(begin));
}

char* Pool::storeText(const std::string& text) {
  char* const stored = text_;
  std::memcpy(stored, text.c_str(), text.size() + 1);
  text_ += text.size() + 1;
  return stored;
}

void Pool::beginContainer(hal::AttributeContainer& container, const std::string& name,
                          std::uint8_t kind) {
  container.name = storeText(name);
  container.kind = kind;
  container.firstAttrIndex = record_->attributeCount;
  container.lastAttrIndex = container.firstAttrIndex - 1;
}

hal::DeviceAttrGeneric* Pool::addAttribute(hal::AttributeContainer& owner,
                                           const Attribute& attribute) {
  hal::DeviceAttrGeneric& added = record_->attributes[record_->attributeCount++];
  added.name = storeText(attribute.name);
  added.container = &owner;
  added.typeCode = attribute.typeCode;
  added.flags = attribute.tracksChanges ? hal::DeviceAttrGeneric::trackChangeFlag : 0;
  if (const auto* integer = std::get_if<std::int32_t>(&attribute.value)) {
    added.value.asInt = *integer;
  } else if (const auto* number = std::get_if<float>(&attribute.value)) {
    added.value.asFloat = *number;
  } else if (const auto* text = std::get_if<std::string>(&attribute.value)) {
    added.value.asTextOffset =
        static_cast<std::uint64_t>(storeText(*text) - static_cast<char*>(segment_.address()));
  }
  ++owner.lastAttrIndex;
  return &added;
}

void Pool::addContainer(const Container& container) {
  hal::AttributeContainer& added = record_->containers[record_->containerCount++];
  beginContainer(added, container.name, container.kind);
  for (const Attribute& attribute : container.attributes) {
    addAttribute(added, attribute);
  }
}

void Pool::addActuator(const Actuator& actuator) {
  SubDeviceRecord& added = record_->subDevices[record_->subDeviceCount++];
  beginContainer(added, actuator.name, hal::subDeviceKind);
  const std::vector<Attribute> attributes = attributesOf(actuator);
  added.value = addAttribute(added, attributes[0]);
  added.minimum = addAttribute(added, attributes[1]);
  added.maximum = addAttribute(added, attributes[2]);
  added.maximumVelocity = addAttribute(added, attributes[3]);
  added.isActuator = true;
  added.interpolates = actuator.interpolates;
}

void Pool::addSensor(const Sensor& sensor) {
  SubDeviceRecord& added = record_->subDevices[record_->subDeviceCount++];
  beginContainer(added, sensor.name, hal::subDeviceKind);
  added.value = addAttribute(added, attributesOf(sensor)[0]);
}

void Pool::addPreferences(const std::vector<Preference>& preferences) {
  std::map<std::string, hal::AttributeContainer*> owners;
  for (int i = 0; i < record_->containerCount; ++i) {
    owners.emplace(record_->containers[i].name.get(), &record_->containers[i]);
  }
  for (int i = 0; i < record_->subDeviceCount; ++i) {
    owners.emplace(record_->subDevices[i].name.get(), &record_->subDevices[i]);
  }
  for (const Preference& preference : preferences) {
    hal::Preference& added = *record_->preferences[record_->preferenceCount++];
    added.name = storeText(preference.name);
    added.owner = owners.at(preference.owner);
    added.typeCode = preference.typeCode;
    added.inUse = preference.inUse ? 1 : 0;
    if (const auto* integer = std::get_if<std::int32_t>(&preference.value)) {
      added.value.asInt = *integer;
    } else if (const auto* number = std::get_if<float>(&preference.value)) {
      added.value.asFloat = *number;
    } else if (const auto* text = std::get_if<std::string>(&preference.value)) {
      added.value.asText = storeText(*text);
    }
  }
}

SubDeviceRecord& Pool::actuator(int index) const {
  if (index < 0 || static_cast<std::size_t>(index) >= actuatorCount_) {
    throw Error("there is no actuator " + std::to_string(index));
  }
  return record_->subDevices[index];
}

SubDeviceRecord& Pool::sensor(int index) const {
  const int actuators = static_cast<int>(actuatorCount_);
  if (index < 0 || index >= record_->subDeviceCount - actuators) {
    throw Error("there is no sensor " + std::to_string(index));
  }
  return record_->subDevices[actuators + index];
}

}  // namespace simulation
