#pragma once

#include "platform/export.h"

namespace hal {

/// A position among the containers of the device pool. Set-up only.
class PLATFORM_API AttributeContainerIterator {
 public:
  /// `selection` says which containers are walked; 1 selects all sub-devices.
  /// The position is settled by assignment from a list's `find()` or `end()`.
  explicit AttributeContainerIterator(unsigned char selection);

  /// True when both iterators stand on the same container, or both past the end.
  [[nodiscard]] bool operator==(AttributeContainerIterator& other);

 protected:
  unsigned char selection_;
  int position_ = 0;
};

}  // namespace hal
