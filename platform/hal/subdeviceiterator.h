#pragma once

#include "platform/hal/attributecontaineriterator.h"
#include "platform/hal/subdeviceaccessor.h"

namespace hal {

/// A position among the sub-devices. Past the end, only comparison is allowed.
class PLATFORM_API SubDeviceIterator : public AttributeContainerIterator {
 public:
  explicit SubDeviceIterator(unsigned char selection) : AttributeContainerIterator(selection) {}

  /// The accessor of the current sub-device; valid until the iterator moves.
  SubDeviceAccessor* operator->();
  SubDeviceAccessor& operator*();

  /// Advances to the next sub-device.
  void operator++(int);

 private:
  friend class SubDeviceList;

  SubDeviceAccessor current_;
};

}  // namespace hal
