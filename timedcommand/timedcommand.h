#pragma once

#include <boost/pool/pool_alloc.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/thread/mutex.hpp>
#include <cstdint>
#include <list>

#include "platform/hal/attrgeneric.h"
#include "platform/hal/subdeviceaccessor.h"
#include "platform/zr/zrmutexrw.h"
#include "torvex_export.h"

namespace hal {
struct DeviceAttrGeneric;
}

/// The signed distance from stamp `b` to stamp `a` on the wrapping clock:
/// positive when `a` is later. Every comparison of stamps goes through it.
///
/// Stamps up to 0x40000000 apart give a - b. Anything further counts as a wrap
/// of the clock with the modulus 0x7FFFFFFF: a - b - 0x7FFFFFFF when `a` lies
/// above 0x40000000, and otherwise a + b - 0x7FFFFFFF. The sum is deliberate.
/// Distinct stamps can have distance 0 (0 and 0x7FFFFFFF).
///
/// Any thread; may be called in the control cycle; throws nothing.
TORVEX_EXPORT int timeDifference(unsigned int a, unsigned int b);

/// The timeline of one attribute: the commands still to come, in time order,
/// and the interpolation, linear or step, by which the control cycle turns them
/// into values.
///
/// Stamps are absolute counts of the host's cycle clock, whatever its unit. A
/// host clock should count modulo 2^32; then spans up to 0x40000000 compare
/// exactly across every wrap.
///
/// Copies hold their own commands but share the lock of the original, so all
/// timelines of one table take turns. Set-up operations (construction, copy,
/// assignment, destruction, `testIfInterpolationPossible`) take no lock: no
/// other thread may use the table meanwhile.
class TORVEX_EXPORT TimedCommand {
 public:
  /// One command: the attribute is to have `value` at `time`.
  struct commandItem {
    /// Linear interpolation: its float is the target. Step interpolation:
    /// written unchanged.
    hal::AttrGeneric value;
    std::uint32_t time;
    /// Never applied: dropped when it reaches the head. As the first item of
    /// a list, in the caller's order, that is pushed into a timeline which is not
    /// empty, it makes the mode `MERGE`.
    bool ignore;

    /// Leaves `time` and `ignore` open: set both before use. An item with an
    /// open flag must not be copied; build it in place.
    commandItem() {}  // NOLINT(modernize-use-equals-default): that would set them to zero
    commandItem(const hal::AttrGeneric& value_, std::uint32_t time_, bool ignore_ = false)
        : value(value_), time(time_), ignore(ignore_) {}

    /// The order of a timeline. It holds for equal stamps, both ways, and is no
    /// strict weak order: among equal stamps the later arrival comes first.
    bool operator<(const commandItem& other) const { return timeDifference(time, other.time) <= 0; }
  };

  /// Every list of commands has this type, so that nodes move between lists by
  /// relinking. Nodes come from one pool per process, which never shrinks.
  using CommandList =
      std::list<commandItem,
                boost::pool_allocator<commandItem, boost::default_user_allocator_new_delete,
                                      boost::mutex, 32, 0>>;

  /// How a pushed list meets the commands that are still queued. Any other
  /// number behaves as `MERGE`.
  enum commandType : int {
    MERGE = 1,         ///< keeps all
    REPLACE = 2,       ///< keeps none
    CLEAR_AFTER = 3,   ///< keeps those strictly earlier than the earliest new one
    CLEAR_BEFORE = 4,  ///< keeps those strictly later than the latest new one
  };

  /// No timeline holds more items than this after a push.
  static constexpr int MAX_TIMELINE_ITEMS = 511;
  /// How many nodes `preAllocate` takes from the pool and returns.
  static constexpr int PREALLOCATED_NODES = 16;

  /// An empty timeline with a lock of its own, bound to no attribute. Lets
  /// through what `ZR::ZRMutexRW::createZRMutexRW` throws.
  TimedCommand();
  /// Copying takes nodes from the pool: may throw `std::bad_alloc`.
  TimedCommand(const TimedCommand&) = default;
  TimedCommand& operator=(const TimedCommand&) = default;
  ~TimedCommand() = default;

  /// Grows the node pool by a few nodes and leaves the timeline empty: queued
  /// commands are discarded. Set-up; takes the lock and lets through what it
  /// throws, with nothing changed. May throw `std::bad_alloc`; the timeline is
  /// empty then, too.
  void preAllocate();

  /// Chooses the interpolation: linear for float attributes, unless a bound
  /// sub-device forbids it; step otherwise. Set-up, after `deviceAttr`,
  /// `isSubDevice` and `subDeviceAccessor` are set. What the platform throws
  /// passes through; the interpolation is then linear.
  void testIfInterpolationPossible();

  /// Merges `commands`, in any order and of any length, into the timeline.
  ///
  /// Sorts `commands` (items with equal stamps come out in reverse), removes
  /// queued items as `type` says, and then moves the new nodes to their places
  /// in time, a new item before a queued one with the same stamp. `commands` is
  /// left empty.
  ///
  /// More than `MAX_TIMELINE_ITEMS` in total are refused in silence: the
  /// timeline stays as trimmed, and `commands` keeps its sorted items. That is
  /// how a caller notices; the list may be pushed again.
  ///
  /// Any thread, also beside the control cycle, which waits meanwhile: keep
  /// lists short. Not inside the control cycle. `commands` must not be used by
  /// another thread. Allocates nothing; lets through what the lock throws,
  /// with nothing changed.
  void pushTimedCommand(CommandList& commands, commandType type);

  /// One control cycle at `time`; `previousTime` is the time of the cycle
  /// before. Nothing happens, not even a lock, while the timeline is empty.
  ///
  /// Cycle thread only. Allocates nothing. Exceptions of the platform pass
  /// through with the lock released. Step interpolation then keeps the command;
  /// linear interpolation has removed what it reached, and its value is not
  /// written again once the timeline is empty.
  void run(unsigned int time, unsigned int previousTime);

  /// Step interpolation: writes every command that is overdue, in order, and the
  /// first one that is due exactly at `time`. For `run`, which holds the lock.
  void computeNextValue(unsigned int time);

  /// Linear interpolation: writes, exactly once, the value at `time` on the
  /// straight line to the next command. `cycleDuration` is the distance from
  /// `previousTime` to `time`. For `run`, which holds the lock.
  ///
  /// Boundary cases: an empty timeline writes `currentValue`; a first command
  /// without a known start is written at once, however far ahead; a command due
  /// exactly at `time` ends the pass; of overdue commands only the last is
  /// written, or the line from it. The ratio is not bounded to [0, 1].
  void computeInterpolation(unsigned int time, unsigned int previousTime, int cycleDuration);

  /// The first item still queued. The timeline must not be empty; this is not
  /// tested. The pointer is used without the lock and holds until a cycle or a
  /// push removes the item. Takes the lock and lets through what it throws. Any
  /// thread, but not inside the cycle's own pass.
  commandItem* getNextCommand();

  /// Removes the first item and returns it. The timeline must not be empty;
  /// this is not tested. Threads, lock and exceptions as `getNextCommand`.
  commandItem popNexCommand();

  /// The attribute, not owned.
  hal::DeviceAttrGeneric* deviceAttr = nullptr;
  /// Valid while `isSubDevice` is 1.
  hal::SubDeviceAccessor subDeviceAccessor;
  /// 1 for the "Value" attribute of an actuator, otherwise 0.
  int isSubDevice = 0;
  /// 1 for linear interpolation, 0 for step interpolation.
  int interpolationPossible = 0;
  /// In time order.
  CommandList commandList;
  boost::shared_ptr<ZR::ZRMutexRW> mutex;
  /// What linear interpolation wrote last, after limits. Not a number at first,
  /// so that the first cycle starts from where the actuator stands.
  float currentValue;
  /// Start of the present segment.
  float lastCommandValue = 0.0F;
  std::uint32_t lastCommandTime = 0;
  /// True until a starting point is known.
  bool firstCommand = true;

 private:
  [[nodiscard]] TORVEX_NO_EXPORT bool looksEmpty() const;
  TORVEX_NO_EXPORT void resynchronise(unsigned int time);
  TORVEX_NO_EXPORT void startSegment(float value, unsigned int time);
  TORVEX_NO_EXPORT void output(float value);
  TORVEX_NO_EXPORT void trim(const CommandList& commands, commandType type);
  TORVEX_NO_EXPORT void removeFrom(unsigned int firstTime);
  TORVEX_NO_EXPORT void removeUpTo(unsigned int lastTime);
  TORVEX_NO_EXPORT void mergeSorted(CommandList& commands);
};

using CommandList = TimedCommand::CommandList;

// One node pool per process: the host's lists and the library's must draw from
// the same one, however the host is linked. So only the library holds the pools,
// and hands them out through these exported functions.
namespace boost {

/// A list node is two links and an item; its pool is chosen by its size alone.
struct CommandNodeLayout {
  void* links[2];
  TimedCommand::commandItem item;
};

using CommandNodePool = singleton_pool<pool_allocator_tag, sizeof(CommandNodeLayout),
                                       default_user_allocator_new_delete, mutex, 32, 0>;
/// Named by the allocator type; nothing is allocated from it.
using CommandItemPool = singleton_pool<pool_allocator_tag, sizeof(TimedCommand::commandItem),
                                       default_user_allocator_new_delete, mutex, 32, 0>;

template <>
TORVEX_EXPORT CommandNodePool::pool_type& CommandNodePool::get_pool();
template <>
TORVEX_EXPORT CommandItemPool::pool_type& CommandItemPool::get_pool();

}  // namespace boost
