#pragma once

#include "platform/export.h"

namespace hal {

struct AttributeContainer;

/// A handle on a container: as small as a pointer, copied by value. The
/// default handle designates nothing; none of its operations may then be
/// called. Any thread, as long as the pool is not being rebuilt.
class PLATFORM_API AttributeContainerAccessor {
 public:
  AttributeContainerAccessor() = default;
  explicit AttributeContainerAccessor(AttributeContainer* container) : container_(container) {}

  /// The container's name, NUL-terminated, never null; valid as long as the pool.
  [[nodiscard]] const char* getName() const;

  /// First and last (inclusive) index of the container's attributes. Every
  /// index is below the pool's attribute count; a container without
  /// attributes has a last index below the first.
  [[nodiscard]] int getFirstAttrIndex();
  [[nodiscard]] int getLastAttrIndex();

 protected:
  AttributeContainer* container_ = nullptr;
};

}  // namespace hal
