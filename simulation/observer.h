#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/export.h"
#include "platform/hal/attrgeneric.h"

namespace simulation {

/// The values of all attributes, by index, as one control cycle left them.
struct PoolCycle {
  /// How many cycles there were; 0 before the first one.
  std::uint64_t number = 0;
  /// What the host passes to the library, in milliseconds.
  std::int64_t machineTimeMs = 0;
  /// When the cycle ended, in nanoseconds since 1970; 0 before the first one.
  std::int64_t wallTimeNs = 0;
  /// False when a cycle was being written all the while: the values may then be of two. So it
  /// stays when the machine was killed in that moment.
  bool isWhole = false;
  std::vector<hal::AttrGeneric> values;
};

/// Reads the device pool of a running machine, as a rule from another process.
/// Maps it read-only and takes no lock, so it cannot disturb. What it read last
/// stays there when the machine ends. Any thread; not for the control cycle.
///
/// Believes nothing but the values: indexes must be below `attributeCount()`; others throw
/// `Error`. So does whatever points out of the pool, texts too long for a pool of so many
/// attributes (they share 64 MiB, and may have 1 KiB each in any case), and a pool that somebody
/// cuts short. For the latter the process has a handler for SIGBUS from the first observer on,
/// which passes on all that does not concern it.
class PLATFORM_API Observer {
 public:
  /// Of a pool of this user, or as "UID:NAME" of another one.
  ///
  /// Throws `Error` when there is no pool of this name, when what bears the
  /// name is not a complete pool of this layout, and when it is neither that user's nor root's.
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
  /// All values as one cycle left them. Tries again while a cycle is being written, for some
  /// milliseconds at most.
  [[nodiscard]] PoolCycle copyCycle() const;
  /// The text that the value of a text attribute designates; its offset must
  /// not be 0, which designates none.
  [[nodiscard]] std::string text(const hal::AttrGeneric& value) const;

 private:
  struct View;
  std::unique_ptr<View> view_;
};

}  // namespace simulation
