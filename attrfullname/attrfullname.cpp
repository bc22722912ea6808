#include "attrfullname/attrfullname.h"

#include <cstddef>
#include <cstring>
#include <utility>

#include "platform/hal/attributecontainer.h"
#include "platform/hal/devicemanager.h"
#include "platform/hal/devicepool.h"
#include "platform/hal/preference.h"

namespace {

constexpr char devicePrefix[] = "Device/DeviceList/";
constexpr char subDevicePrefix[] = "Device/SubDeviceList/";

std::string key(const char* prefix, const hal::AttributeContainerAccessor& container,
                hal::DeviceAttrGeneric* attribute) {
  const char* name = hal::getDeviceManager()->getNameByAttribute(attribute);
  if (name == nullptr) {
    return {};
  }
  return std::string(prefix) + container.getName() + "/" + name;
}

bool beginsWith(const std::string& name, const char* prefix) {
  return name.compare(0, std::strlen(prefix), prefix) == 0;
}

}  // namespace

std::string AttrFullName::getZRMemoryNameForDevice(hal::DeviceAccessor device,
                                                   hal::DeviceAttrGeneric* attribute) {
  return key(devicePrefix, device, attribute);
}

std::string AttrFullName::getZRMemoryNameForSubDevice(hal::SubDeviceAccessor subDevice,
                                                      hal::DeviceAttrGeneric* attribute) {
  return key(subDevicePrefix, subDevice, attribute);
}

std::string AttrFullName::getZRMemoryNameForPreference(hal::Preference* preference,
                                                       hal::DeviceAttrGeneric* attribute) {
  if (attribute == nullptr) {
    return {};
  }
  hal::DeviceManager* manager = hal::getDeviceManager();
  const char* name = manager->getNameByAttribute(attribute);
  if (name == nullptr || std::strcmp(name, "Value") != 0) {
    return {};
  }
  const char* unmarked = hal::withoutMark(preference->name.get());
  if (manager->foundAttributeContainerWithNames(unmarked) != nullptr) {
    return {};
  }
  return unmarked;
}

std::string AttrFullName::computeAttributeFullName(int attributeIndex) {
  hal::DeviceManager* manager = hal::getDeviceManager();
  int positionInContainer = 0;
  hal::DeviceAttrGeneric* attribute = manager->getAttrWithIndex(attributeIndex);
  hal::AttributeContainer* container =
      manager->getAttributeContainerWithIndex(attributeIndex, positionInContainer);
  if (attribute == nullptr || container == nullptr) {
    return {};
  }
  if (container->kind == hal::deviceKind) {
    return getZRMemoryNameForDevice(hal::DeviceAccessor(static_cast<hal::Device*>(container)),
                                    attribute);
  }
  if (container->kind == hal::subDeviceKind) {
    return getZRMemoryNameForSubDevice(
        hal::SubDeviceAccessor(static_cast<hal::SubDevice*>(container)), attribute);
  }
  return {};
}

void AttrFullName::initNameList(int first) {
  const int count = hal::getDevicePool()->attributeCount;
  if (first == 0) {
    nameToIndex.clear();
    nameList.clear();
  }
  nameList.reserve(static_cast<std::size_t>(first == 0 ? count : first));
  for (int index = first; index < count; ++index) {
    const std::string& name = storeName(index, computeAttributeFullName(index));
    if (!name.empty()) {
      nameToIndex[name] = index;  // of equal keys, the last one counts
    }
  }
}

const std::string& AttrFullName::storeName(int index, std::string&& name) {
  if (index >= static_cast<int>(nameList.size())) {
    nameList.push_back(std::move(name));
    return nameList.back();
  }
  std::string& entry = nameList[static_cast<std::size_t>(index)];
  entry = std::move(name);
  return entry;
}

int AttrFullName::getAttributeIndexWithName(const std::string& name) {
  const bool isFullKey = beginsWith(name, subDevicePrefix) || beginsWith(name, devicePrefix);
  const auto found = isFullKey ? nameToIndex.find(name) : nameToIndex.find(subDevicePrefix + name);
  return found == nameToIndex.end() ? -1 : found->second;
}

std::string& AttrFullName::getAttributeNameWithIndex(int index) {
  return nameList[static_cast<std::size_t>(index)];
}
