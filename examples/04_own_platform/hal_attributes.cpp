// For the set-up, and for look-ups by name later: attributes and their owners, by index.

#include <cstring>

#include "memory.h"
#include "platform/hal/devicemanager.h"

namespace hal {

// Must have the number of attributes, which is the size of all tables. If it is too
// small, the timeline of a joint is outside its table; nothing checks that.
DevicePool* getDevicePool() {
  return &memory.pool;
}

// Must return a manager at any time; the library does not check for null.
DeviceManager* getDeviceManager() {
  static DeviceManager manager;
  return &manager;
}

// Must return the same address while the library runs, because the library keeps it: it
// would write to the old place of a moved table. Null for an index that does not exist.
DeviceAttrGeneric* DeviceManager::getAttrWithIndex(int index) {
  return index >= 0 && index < memory.pool.attributeCount ? &memory.attribute(index) : nullptr;
}

// Must return the short name. The attribute with exactly the name "Value" is the command
// register of an actuator; an actuator without it is never driven.
const char* DeviceManager::getNameByAttribute(DeviceAttrGeneric* attribute) {
  return attribute == nullptr ? nullptr : attribute->name.get();
}

// Must return the container that has the index. With another one the attribute gets a
// wrong name, and with null it gets none.
AttributeContainer* DeviceManager::getAttributeContainerWithIndex(int index,
                                                                  int& positionInContainer) {
  const DeviceAttrGeneric* attribute = getAttrWithIndex(index);
  if (attribute == nullptr) {
    return nullptr;
  }
  positionInContainer = index - attribute->container->firstAttrIndex;
  return attribute->container.get();
}

// Must find devices and sub-devices by their exact name. Otherwise a preference gets the
// key of a container with the same name.
AttributeContainer* DeviceManager::foundAttributeContainerWithNames(const char* name) {
  for (Joint& joint : memory.joints) {
    if (std::strcmp(joint.name.get(), name) == 0) {
      return &joint;
    }
  }
  return nullptr;
}

}  // namespace hal
