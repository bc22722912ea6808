#include "preferences/exportqelvopreferences.h"

#include <boost/make_shared.hpp>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "platform/hal/attributecontainer.h"
#include "platform/hal/devicepool.h"
#include "platform/zr/zrbroker.h"
#include "platform/zr/zrpreferencesproxy.h"
#include "platform/zr/zrvalue.h"
#include "registry/brokermanager.h"

namespace {

constexpr std::uint8_t firstIntegerTypeCode = 1;
constexpr std::uint8_t lastIntegerTypeCode = 6;
constexpr std::uint8_t floatTypeCode = 7;
constexpr std::uint8_t textTypeCode = 8;
constexpr std::uint8_t markedTextTypeCode = 9;

/// The elements of an entry.
constexpr int labelElement = 0;
constexpr int emptyElement = 1;
constexpr int valueElement = 2;
constexpr int keyElement = 3;
constexpr int elementCount = 4;

void fill(ZR::ZRValue& value, const hal::Preference& preference) {
  const std::uint8_t typeCode = preference.typeCode;
  if (typeCode >= firstIntegerTypeCode && typeCode <= lastIntegerTypeCode) {
    value = static_cast<int>(preference.value.asInt);
  } else if (typeCode == floatTypeCode) {
    value = preference.value.asFloat;
  } else if (typeCode == textTypeCode) {
    value = ZR::ZRValue(std::string(preference.value.asText.get()));
  } else if (typeCode == markedTextTypeCode) {
    value = ZR::ZRValue(std::string(hal::withoutMark(preference.value.asText.get())));
  }
}

}  // namespace

ExportQelvoPreferences::ExportQelvoPreferences(const char* containerName, const char* fileName) {
  ZR::ZRValue tree;
  createZRValueFromPreference(containerName, tree);
  if (keyAdded) {
    writeQelvoPreferenceFile(tree, fileName);
  }
}

void ExportQelvoPreferences::createZRValueFromPreference(const char* containerName,
                                                         ZR::ZRValue& tree) {
  tree.clear();
  for (int i = 0; i < hal::getDevicePool()->preferenceCount; ++i) {
    const hal::Preference& preference = *hal::getDevicePool()->preferences[i];
    if (preference.inUse == 0 || std::strcmp(preference.owner->name.get(), containerName) != 0) {
      continue;
    }
    ZR::ZRValue value;
    fill(value, preference);
    xAddAKey(hal::withoutMark(preference.name.get()), value, tree);
  }
}

// The key is a copy by contract.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
int ExportQelvoPreferences::xAddAKey(std::string key, ZR::ZRValue& value, ZR::ZRValue& tree) {
  if (!keyAdded || !tree.isValid()) {
    tree.arraySetSize(0);
  }
  if (tree.getType() != ZR::ZRValue::arrayType) {
    return -1;
  }
  const int size = tree.getSize();
  for (int i = 0; i < size; ++i) {
    const std::string& present = tree[i][keyElement];
    if (present == key) {
      tree[i][valueElement] = value;
      keyAdded = true;
      return 1;
    }
  }
  tree.arraySetSize(size + 1);
  ZR::ZRValue& entry = tree[size];
  entry.arraySetSize(elementCount);
  char label[128];
  std::snprintf(label, sizeof label, "Key%d", size + 1);
  entry[labelElement] = ZR::ZRValue(std::string(label));
  entry[emptyElement] = ZR::ZRValue(std::string());
  entry[valueElement] = value;
  entry[keyElement] = ZR::ZRValue(key);
  keyAdded = true;
  return 1;
}

// The proxy is made for this one write, and must be held until it has returned.
void ExportQelvoPreferences::writeQelvoPreferenceFile(ZR::ZRValue& tree, const char* fileName) {
  const boost::shared_ptr<ZR::ZRBroker> broker = getBrokerManager();
  const auto proxy =
      boost::make_shared<ZR::ZRPreferencesProxy>(broker->getProxy("ZRPreferences", 0));
  proxy->writePrefFile(std::string(fileName), tree, false);
}
