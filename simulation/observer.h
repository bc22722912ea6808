#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/export.h"
#include "platform/hal/attrgeneric.h"

namespace simulation {

/// Reads the device pool of a running machine, as a rule from another process.
/// Maps it read-only and takes no lock, so it cannot disturb. What it read last
/// stays there when the machine ends. Any thread; not for the control cycle.
///
/// Indexes must be below `attributeCount()`; others throw `Error`. So does
/// whatever points out of the pool.
class PLATFORM_API Observer {
 public:
  /// Throws `Error` when there is no pool of this name, or when what bears the
  /// name is not a complete pool of this layout.
  explicit Observer(const std::string& poolName);
  ~Observer();

  Observer(const Observer&) = delete;
  Observer& operator=(const Observer&) = delete;

  /// True while the process that owns the machine lives and has not ended it.
  [[nodiscard]] bool isOwned() const;

  [[nodiscard]] int attributeCount() const;
  /// The names of the container and of the attribute.
  [[nodiscard]] std::string containerName(int index) const;
  [[nodiscard]] std::string attributeName(int index) const;
  /// `hal::subDeviceKind`, `hal::deviceKind` or a further code.
  [[nodiscard]] std::uint8_t containerKind(int index) const;
  [[nodiscard]] std::uint8_t typeCode(int index) const;
  /// The present value, never torn.
  [[nodiscard]] hal::AttrGeneric value(int index) const;
  /// The text that the value of a text attribute designates; its offset must
  /// not be 0, which designates none.
  [[nodiscard]] std::string text(const hal::AttrGeneric& value) const;

 private:
  struct Mapping;
  std::unique_ptr<Mapping> mapping_;
};

}  // namespace simulation
