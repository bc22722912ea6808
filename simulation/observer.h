#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/export.h"
#include "platform/hal/attrgeneric.h"

namespace simulation {

/// Reads the device pool of a running machine, as a rule from another process.
/// Maps it read-only, so it cannot disturb. Any thread; not for the control
/// cycle. Indexes must be below `attributeCount()`; others throw `Error`.
class PLATFORM_API Observer {
 public:
  /// Throws `Error` when there is no pool of this name, or when what bears the
  /// name is not a complete pool of this layout.
  explicit Observer(const std::string& poolName);
  ~Observer();

  Observer(const Observer&) = delete;
  Observer& operator=(const Observer&) = delete;

  [[nodiscard]] int attributeCount() const;
  /// The names of the container and of the attribute.
  [[nodiscard]] std::string containerName(int index) const;
  [[nodiscard]] std::string attributeName(int index) const;
  [[nodiscard]] std::uint8_t typeCode(int index) const;
  /// The present value, never torn.
  [[nodiscard]] hal::AttrGeneric value(int index) const;

 private:
  struct Mapping;
  std::unique_ptr<Mapping> mapping_;
};

}  // namespace simulation
