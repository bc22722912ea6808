#include "timedcommand/timedcommand.h"

#include <algorithm>
#include <iterator>
#include <limits>

#include "platform/hal/deviceattrgeneric.h"
#include "platform/zr/zrcriticalsectionwrite.h"

namespace {

constexpr unsigned int clockModulus = 0x7FFFFFFF;
constexpr unsigned int largestSpan = 0x40000000;

/// Returns the nodes before `end` to the pool, from the back: the pool searches
/// its free nodes from the lowest address, and later nodes mostly lie higher.
void releaseBefore(CommandList& commands, CommandList::iterator end) {
  while (end != commands.begin()) {
    end = commands.erase(std::prev(end));
  }
}

/// Whether sorting would change nothing. Comparing neighbours is not enough,
/// the order is not transitive; offsets from the first stamp decide.
bool isSorted(const CommandList& commands) {
  const unsigned int first = commands.front().time;
  unsigned int previousOffset = 0;
  for (auto item = std::next(commands.begin()); item != commands.end(); ++item) {
    const unsigned int offset = item->time - first;
    if (offset <= previousOffset || offset > largestSpan) {
      return false;
    }
    previousOffset = offset;
  }
  return true;
}

void sortByTime(CommandList& commands) {
  if (commands.size() < 2 || isSorted(commands)) {
    return;
  }
  commands.sort();
}

}  // namespace

int timeDifference(unsigned int a, unsigned int b) {
  unsigned int difference = a - b;
  const unsigned int magnitude = difference > clockModulus ? b - a : difference;
  if (magnitude > largestSpan) {
    // The sum in the second branch is part of the rule.
    difference = a > largestSpan ? difference - clockModulus : a + b - clockModulus;
  }
  return static_cast<int>(difference);
}

TimedCommand::TimedCommand() : currentValue(std::numeric_limits<float>::quiet_NaN()) {
  mutex = ZR::ZRMutexRW::createZRMutexRW();
}

void TimedCommand::preAllocate() {
  const ZR::ZRCriticalSectionWrite section(mutex);
  CommandList emptied;  // so that the timeline is empty, too, when memory runs out
  emptied.swap(commandList);
  for (int i = 0; i < PREALLOCATED_NODES; ++i) {
    emptied.emplace_front();
  }
  releaseBefore(emptied, emptied.end());
}

void TimedCommand::testIfInterpolationPossible() {
  interpolationPossible = 1;
  if (deviceAttr->typeCode != hal::floatTypeCode) {
    interpolationPossible = 0;
    return;
  }
  if (isSubDevice == 0) {
    return;
  }
  interpolationPossible = subDeviceAccessor.isInterpolationPossible() ? 1 : 0;
}

void TimedCommand::pushTimedCommand(CommandList& commands, commandType type) {
  if (!looksEmpty() && !commands.empty() && commands.front().ignore) {
    type = MERGE;
  }
  const ZR::ZRCriticalSectionWrite section(mutex);
  sortByTime(commands);
  trim(commands, type);
  if (commandList.size() + commands.size() > MAX_TIMELINE_ITEMS || &commands == &commandList) {
    return;
  }
  mergeSorted(commands);
}

void TimedCommand::trim(const CommandList& commands, commandType type) {
  if (type == REPLACE) {
    releaseBefore(commandList, commandList.end());
  }
  if (commands.empty()) {
    return;
  }
  if (type == CLEAR_AFTER) {
    removeFrom(commands.front().time);
  }
  if (type == CLEAR_BEFORE) {
    removeUpTo(commands.back().time);
  }
}

// Both take the stamp by value: in a list pushed into itself its item goes away.
void TimedCommand::removeFrom(unsigned int firstTime) {
  while (!commandList.empty() && timeDifference(firstTime, commandList.back().time) <= 0) {
    commandList.pop_back();
  }
}

void TimedCommand::removeUpTo(unsigned int lastTime) {
  releaseBefore(commandList,
                std::find_if(commandList.begin(), commandList.end(), [=](const commandItem& item) {
                  return timeDifference(lastTime, item.time) < 0;
                }));
}

// The walk of std::list::merge, which a checked standard library refuses to do
// with an order that holds for equal stamps.
void TimedCommand::mergeSorted(CommandList& commands) {
  auto queued = commandList.begin();
  while (!commands.empty()) {
    if (queued == commandList.end()) {
      commandList.splice(queued, commands);
    } else if (commands.front() < *queued) {
      commandList.splice(queued, commands, commands.begin());
    } else {
      ++queued;
    }
  }
}

// Read without the lock, against a push or a cycle on another thread. Harmless:
// a command missed now is met in the next cycle, a timeline emptied after the
// test is handled by both interpolations, and a push only settles its mode by it.
__attribute__((no_sanitize("thread"))) bool TimedCommand::looksEmpty() const {
  return commandList.empty();
}

void TimedCommand::run(unsigned int time, unsigned int previousTime) {
  if (looksEmpty()) {
    return;
  }
  const int cycleDuration = timeDifference(time, previousTime);
  const ZR::ZRCriticalSectionWrite section(mutex);
  if (interpolationPossible != 0) {
    resynchronise(time);
    computeInterpolation(time, previousTime, cycleDuration);
  } else {
    computeNextValue(time);
  }
}

/// Starts from where the actuator stands when that is not what was written
/// last. Exact on purpose; not-a-number on either side counts as moved.
void TimedCommand::resynchronise(unsigned int time) {
  if (!(subDeviceAccessor.getValueFloat() == currentValue)) {
    startSegment(subDeviceAccessor.getValueFloat(), time);
  }
}

void TimedCommand::startSegment(float value, unsigned int time) {
  currentValue = value;
  lastCommandValue = value;
  lastCommandTime = time;
  firstCommand = false;
}

void TimedCommand::output(float value) {
  if (isSubDevice != 0) {
    currentValue = subDeviceAccessor.limitMinMaxFloat(value);
    subDeviceAccessor.setValueFloat(currentValue);
    return;
  }
  deviceAttr->storeFloat(value);
  if (deviceAttr->tracksChanges()) {
    deviceAttr->trackChange();
  }
}

void TimedCommand::computeNextValue(unsigned int time) {
  while (!commandList.empty()) {
    const commandItem& next = commandList.front();
    if (next.ignore) {
      commandList.pop_front();
      continue;
    }
    const int overdue = timeDifference(time, next.time);
    if (overdue < 0) {
      return;
    }
    deviceAttr->set(next.value);  // a write that throws keeps the command
    commandList.pop_front();
    if (overdue == 0) {
      return;
    }
  }
}

void TimedCommand::computeInterpolation(unsigned int time, unsigned int previousTime,
                                        int cycleDuration) {
  while (!commandList.empty()) {
    const commandItem& next = commandList.front();
    const float target = next.value.asFloat;
    if (next.ignore) {
      commandList.pop_front();
      continue;
    }
    const int overdue = timeDifference(time, next.time);
    if (firstCommand) {
      startSegment(target, next.time);
      break;
    }
    if (overdue < 0) {
      const bool reachedLately = cycleDuration >= timeDifference(time, lastCommandTime);
      const unsigned int startTime = reachedLately ? lastCommandTime : previousTime;
      const float startValue = reachedLately ? lastCommandValue : currentValue;
      const int elapsed = timeDifference(time, startTime);
      const int span = timeDifference(next.time, startTime);
      currentValue = static_cast<float>(elapsed) * (target - startValue) /
                         static_cast<float>(span == 0 ? 1 : span) +
                     startValue;
      break;
    }
    startSegment(target, next.time);
    commandList.pop_front();
    if (overdue == 0) {
      break;
    }
  }
  output(currentValue);
}

TimedCommand::commandItem* TimedCommand::getNextCommand() {
  const ZR::ZRCriticalSectionWrite section(mutex);
  // Not front(): a library with assertions tests it for emptiness.
  return &*commandList.begin();
}

TimedCommand::commandItem TimedCommand::popNexCommand() {
  const ZR::ZRCriticalSectionWrite section(mutex);
  const commandItem next = *commandList.begin();
  commandList.erase(commandList.begin());
  return next;
}
