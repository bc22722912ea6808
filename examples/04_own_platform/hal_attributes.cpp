// Set-up, and look-ups by name later: attributes and their owners, by index.

#include <cstring>

#include "memory.h"
#include "platform/hal/devicemanager.h"

namespace hal {

// Owes the number of attributes, which sizes all tables. With too small a count
// a joint's timeline lies outside its table; nobody tests that.
DevicePool* getDevicePool() {
  return &memory.pool;
}

// Owes a manager at any time; null is not tested for.
DeviceManager* getDeviceManager() {
  static DeviceManager manager;
  return &manager;
}

// Owes the same address for as long as the library runs, which keeps it: a table
// that moves is later written where it was. Null for an index that does not exist.
DeviceAttrGeneric* DeviceManager::getAttrWithIndex(int index) {
  return index >= 0 && index < memory.pool.attributeCount ? &memory.attribute(index) : nullptr;
}

// Owes the short name. "Value", letter for letter, is what makes an actuator's
// attribute its command register; else the actuator is never driven.
const char* DeviceManager::getNameByAttribute(DeviceAttrGeneric* attribute) {
  return attribute == nullptr ? nullptr : attribute->name.get();
}

// Owes the container that holds the index; with another one the attribute
// answers to a wrong name, and with null to none.
AttributeContainer* DeviceManager::getAttributeContainerWithIndex(int index,
                                                                  int& positionInContainer) {
  const DeviceAttrGeneric* attribute = getAttrWithIndex(index);
  if (attribute == nullptr) {
    return nullptr;
  }
  positionInContainer = index - attribute->container->firstAttrIndex;
  return attribute->container.get();
}

// Owes devices and sub-devices, found by the exact name; else a preference takes
// the key of the container that bears the same name.
AttributeContainer* DeviceManager::foundAttributeContainerWithNames(const char* name) {
  for (Joint& joint : memory.joints) {
    if (std::strcmp(joint.name.get(), name) == 0) {
      return &joint;
    }
  }
  return nullptr;
}

}  // namespace hal
