// The operations of the hal on the device pool of this process's machine.

#include <cstring>

#include "platform/hal/devicemanager.h"
#include "platform/hal/devicepool.h"
#include "platform/hal/subdevicelist.h"
#include "simulation/devicepool/pool.h"

namespace {

simulation::SubDeviceRecord& recordOf(hal::AttributeContainer* container) {
  return *static_cast<simulation::SubDeviceRecord*>(container);
}

/// The accessor of the sub-device at a position; past the end, one that refers to none.
hal::SubDeviceAccessor accessorAt(int position) {
  simulation::PoolRecord& pool = simulation::currentPool().record();
  return position < pool.subDeviceCount ? hal::SubDeviceAccessor(&pool.subDevices[position])
                                        : hal::SubDeviceAccessor();
}

}  // namespace

namespace hal {

DevicePool* getDevicePool() {
  return &simulation::currentPool().record();
}

DeviceManager* getDeviceManager() {
  static DeviceManager manager;
  return &manager;
}

DeviceAttrGeneric* DeviceManager::getAttrWithIndex(int index) {
  simulation::PoolRecord& pool = simulation::currentPool().record();
  return index >= 0 && index < pool.attributeCount ? &pool.attributes[index] : nullptr;
}

const char* DeviceManager::getNameByAttribute(DeviceAttrGeneric* attribute) {
  return attribute == nullptr ? nullptr : attribute->name.get();
}

AttributeContainer* DeviceManager::getAttributeContainerWithIndex(int index,
                                                                  int& positionInContainer) {
  DeviceAttrGeneric* attribute = getAttrWithIndex(index);
  if (attribute == nullptr) {
    return nullptr;
  }
  positionInContainer = index - attribute->container->firstAttrIndex;
  return attribute->container.get();
}

AttributeContainer* DeviceManager::foundAttributeContainerWithNames(const char* name) {
  simulation::PoolRecord& pool = simulation::currentPool().record();
  for (int i = 0; i < pool.containerCount; ++i) {
    AttributeContainer& container = pool.containers[i];
    if (container.kind == deviceKind && std::strcmp(container.name.get(), name) == 0) {
      return &container;
    }
  }
  for (int i = 0; i < pool.subDeviceCount; ++i) {
    if (std::strcmp(pool.subDevices[i].name.get(), name) == 0) {
      return &pool.subDevices[i];
    }
  }
  return nullptr;
}

void DeviceAttrGeneric::set(const AttrGeneric& newValue) {
  AttrGeneric stored = newValue;
  __atomic_store(&value, &stored, __ATOMIC_RELEASE);
  if (tracksChanges()) {
    trackChange();
  }
}

void DeviceAttrGeneric::trackChange() {
  __atomic_fetch_add(&changeCount, 1, __ATOMIC_RELAXED);
}

const char* AttributeContainerAccessor::getName() const {
  return container_->name.get();
}

int AttributeContainerAccessor::getFirstAttrIndex() {
  return container_->firstAttrIndex;
}

int AttributeContainerAccessor::getLastAttrIndex() {
  return container_->lastAttrIndex;
}

bool SubDeviceAccessor::isActuator() const {
  return recordOf(container_).isActuator;
}

bool SubDeviceAccessor::isInterpolationPossible() const {
  return recordOf(container_).interpolates;
}

float SubDeviceAccessor::getValueFloat() const {
  return recordOf(container_).value->loadFloat();
}

void SubDeviceAccessor::setValueFloat(float value) {
  recordOf(container_).value->storeFloat(value);
}

float SubDeviceAccessor::limitMinMaxFloat(float value) const {
  simulation::SubDeviceRecord& record = recordOf(container_);
  const float minimum = record.minimum->loadFloat();
  const float maximum = record.maximum->loadFloat();
  if (value < minimum || value > maximum) {
    __atomic_fetch_add(&record.limited, 1, __ATOMIC_RELAXED);
    return value < minimum ? minimum : maximum;
  }
  return value;
}

AttributeContainerIterator::AttributeContainerIterator(unsigned char selection)
    : selection_(selection) {}

bool AttributeContainerIterator::operator==(AttributeContainerIterator& other) {
  return selection_ == other.selection_ && position_ == other.position_;
}

SubDeviceAccessor* SubDeviceIterator::operator->() {
  return &current_;
}

SubDeviceAccessor& SubDeviceIterator::operator*() {
  return current_;
}

void SubDeviceIterator::operator++(int) {
  ++position_;
  current_ = accessorAt(position_);
}

SubDeviceIterator SubDeviceList::find() {
  SubDeviceIterator first(1);
  first.current_ = accessorAt(0);
  return first;
}

SubDeviceIterator SubDeviceList::end() {
  SubDeviceIterator pastLast(1);
  pastLast.position_ = simulation::currentPool().record().subDeviceCount;
  return pastLast;
}

}  // namespace hal
