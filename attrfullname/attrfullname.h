#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/hal/deviceaccessor.h"
#include "platform/hal/subdeviceaccessor.h"
#include "torvex_export.h"

namespace hal {
struct DeviceAttrGeneric;
struct Preference;
}  // namespace hal

/// The full memory key of every attribute, and the way back from names to
/// attribute indexes.
///
/// Keys are "Device/DeviceList/" or "Device/SubDeviceList/", the container's
/// name, "/" and the attribute's name, without escaping. The empty string
/// means that an attribute has no key.
///
/// The host builds the table while no other thread uses it; afterwards it is
/// only read, by any thread. Not meant for the control cycle. Everything may
/// throw `std::bad_alloc`.
class TORVEX_EXPORT AttrFullName {
 public:
  /// Builds the table for all attributes of the device pool (`first` 0), or
  /// names and appends those from index `first` on, which must be the number
  /// of names already held. A negative `first` throws `std::length_error`. After
  /// an exception the table stays as far as it was built.
  void initNameList(int first);

  /// The index of a full key, or of a bare sub-device form such as
  /// JointA/Position; -1 when unknown. When several attributes have the same
  /// key, the highest index.
  int getAttributeIndexWithName(const std::string& name);

  /// The key of an attribute, empty when it has none. `index` must be below the
  /// number of attributes; this is not tested. The reference is the table's own
  /// entry: do not write to it; it holds until the table is built again.
  std::string& getAttributeNameWithIndex(int index);

  /// The key of the attribute with this index; empty when there is no such
  /// attribute, it has no name, or neither a device nor a sub-device owns it.
  std::string computeAttributeFullName(int attributeIndex);

  /// The key of a device's attribute; empty when the attribute has no name.
  std::string getZRMemoryNameForDevice(hal::DeviceAccessor device,
                                       hal::DeviceAttrGeneric* attribute);

  /// The key of a sub-device's attribute; empty when the attribute has no name.
  std::string getZRMemoryNameForSubDevice(hal::SubDeviceAccessor subDevice,
                                          hal::DeviceAttrGeneric* attribute);

  /// The key of a preference's "Value" attribute: the preference's name less
  /// its leading mark. Empty for any other attribute, and when a device or
  /// sub-device bears that very name.
  std::string getZRMemoryNameForPreference(hal::Preference* preference,
                                           hal::DeviceAttrGeneric* attribute);

 private:
  TORVEX_NO_EXPORT const std::string& storeName(int index, std::string&& name);

  std::map<std::string, int> nameToIndex;
  std::vector<std::string> nameList;
};
