#pragma once

#include <string>
#include <vector>

#include "timedcommand/timedcommand.h"
#include "torvex_export.h"

namespace hal {
class SubDeviceIterator;
}

/// The table of timelines, one per attribute index, and the list of those that
/// the control cycle drives: the "Value" attributes of the actuators.
///
/// The host owns it, builds it while neither a cycle nor a command thread
/// runs, and then calls `run` from its cycle thread and the other operations
/// from its command threads.
class TORVEX_EXPORT TimedCommandManager {
 public:
  /// Builds both tables from the device pool.
  ///
  /// With `startIndex` 0 everything is built anew and queued commands are
  /// dropped. Otherwise `startIndex` is the first attribute index whose handle
  /// is read again, at most the table's present size (this is not tested): the
  /// table is resized to the pool's attribute count. Timelines that stay within
  /// it keep their commands, their lock and their marks, at and above `startIndex`
  /// as well as below; only the actuator "Value" timelines that are found, above
  /// and below, are emptied. With a `startIndex` above the old size, the timelines
  /// in between have no attribute.
  ///
  /// Set-up, one thread. Lets through what the platform throws, and
  /// `std::bad_alloc`: a failure before the table is sized leaves it as it was;
  /// after a later one neither run nor add until a build has succeeded.
  void initTimedCommand(int startIndex);

  /// Hands `commands` to the timeline of an attribute, whose index must be
  /// below the table's size (this is not tested). Always true, also when the
  /// timeline refused the list: `commands` is then not empty. Threads, locking
  /// and exceptions as `TimedCommand::pushTimedCommand`.
  bool AddTimedCommandWithIndex(int index, CommandList& commands, TimedCommand::commandType type);

  /// The same by name: a full key, or a bare sub-device form such as X/Value.
  /// False when the name is unknown; nothing has then changed. The name table
  /// must be registered. May throw `std::bad_alloc` before anything changes.
  bool AddTimedCommand(const std::string& name, CommandList& commands,
                       TimedCommand::commandType type);

  /// The index of any attribute, actuator or not, or -1 when the name is
  /// unknown. Command threads; may throw `std::bad_alloc`.
  int testActuatorName(const std::string& name);

  /// One control cycle of every actuator, in table order. `time` is the time
  /// of this cycle, `previousTime` that of the last one, in the unit of the
  /// command stamps. Cycle thread only; allocates nothing; exceptions of the
  /// platform pass through, later actuators are then left out.
  void run(unsigned int time, unsigned int previousTime);

  /// The timeline of attribute i is element i.
  std::vector<TimedCommand> commandTable;
  /// Points into `commandTable`, in the platform's order of sub-devices.
  std::vector<TimedCommand*> actuatorCommands;

 private:
  TORVEX_NO_EXPORT void sizeTable(int startIndex, int count);
  TORVEX_NO_EXPORT void listValueTimelines(hal::SubDeviceIterator& actuator);
};

/// The process-wide slot of the manager.
///
/// The host owns the object, sets the slot at start before any thread reads
/// it, and keeps the object alive while it is set. No lock, no check, no
/// exception; the getter may be called in the control cycle.

/// What was stored last; null before.
TORVEX_EXPORT TimedCommandManager* getTimedCommandManager();

/// Stores the pointer, null included; the previous object is left alone.
TORVEX_EXPORT void setTimedCommandManager(TimedCommandManager* manager);
