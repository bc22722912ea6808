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
  /// The number of cycles so far; 0 before the first one.
  std::uint64_t number = 0;
  /// What the host passes to the library, in milliseconds.
  std::int64_t machineTimeMs = 0;
  /// When the cycle ended, in nanoseconds since 1970; 0 before the first one.
  std::int64_t wallTimeNs = 0;
  /// False when a cycle was being written all the time: the values may then belong to two cycles.
  /// It stays false when the machine was killed while it wrote.
  bool isWhole = false;
  std::vector<hal::AttrGeneric> values;
};

/// Reads the device pool of a running machine, usually from another process. It maps the pool
/// read-only and takes no lock, so it cannot disturb the machine. The last values remain readable
/// when the machine ends. Any thread; not for the control cycle.
///
/// It trusts nothing but the values. It throws `Error` for an index that is not below
/// `attributeCount()`, for an offset that leads out of the device pool, for a text that is too long
/// (all texts share 64 MiB, and each may have 1 KiB in any case), and for a pool that somebody has
/// truncated. For the latter the first observer installs a handler for SIGBUS in the process, which
/// passes other faults on.
class PLATFORM_API Observer {
 public:
  /// Opens a device pool of this user, or as "UID:NAME" that of another.
  ///
  /// Throws `Error` when there is no device pool with this name, when the file with this name is no
  /// complete pool of this layout, and when it belongs to neither that user nor root.
  explicit Observer(const std::string& poolName);
  ~Observer();

  Observer(const Observer&) = delete;
  Observer& operator=(const Observer&) = delete;

  /// True while the process that owns the machine runs and has not ended it.
  [[nodiscard]] bool isOwned() const;

  [[nodiscard]] int attributeCount() const;
  /// The names of the container and of the attribute.
  [[nodiscard]] std::string containerName(int index) const;
  [[nodiscard]] std::string attributeName(int index) const;
  /// `hal::subDeviceKind`, `hal::deviceKind` or a further code.
  [[nodiscard]] std::uint8_t containerKind(int index) const;
  [[nodiscard]] std::uint8_t typeCode(int index) const;
  /// Whether it is the command register of an actuator.
  [[nodiscard]] bool isCommand(int index) const;
  /// The present value; it is never a mixture of two.
  [[nodiscard]] hal::AttrGeneric value(int index) const;
  /// All values as one cycle left them. While a cycle is being written it tries again, for a few
  /// milliseconds at most.
  [[nodiscard]] PoolCycle copyCycle() const;
  /// The text to which the value of a text attribute refers. Its offset must not be 0, which refers
  /// to none.
  [[nodiscard]] std::string text(const hal::AttrGeneric& value) const;

 private:
  struct View;
  std::unique_ptr<View> view_;
};

}  // namespace simulation
