// How new commands are merged with queued ones. A timeline holds commands for the
// stamps 100 to 400. Two commands for 250 and 350, marked with a star, are pushed
// in each of the four modes. Prints the queue before and after:
//   MERGE         100 200 300 400 -> 100 200 250* 300 350* 400
//   REPLACE       100 200 300 400 -> 250* 350*
//   CLEAR_AFTER   100 200 300 400 -> 100 200 250* 350*
//   CLEAR_BEFORE  100 200 300 400 -> 250* 350* 400

#include <cstdio>
#include <string>

#include "timedcommand/timedcommand.h"

namespace {

struct Mode {
  const char* name;
  TimedCommand::commandType type;
  const char* expected;
};

constexpr Mode modes[] = {
    {"MERGE", TimedCommand::MERGE, "100 200 250* 300 350* 400"},
    {"REPLACE", TimedCommand::REPLACE, "250* 350*"},
    {"CLEAR_AFTER", TimedCommand::CLEAR_AFTER, "100 200 250* 350*"},
    {"CLEAR_BEFORE", TimedCommand::CLEAR_BEFORE, "250* 350* 400"},
};

const hal::AttrGeneric oldValue(0.0F);
const hal::AttrGeneric newValue(1.0F);

std::string stampsOf(const CommandList& commands) {
  std::string stamps;
  for (const TimedCommand::commandItem& item : commands) {
    stamps += (stamps.empty() ? "" : " ") + std::to_string(item.time) +
              (item.value.asFloat == newValue.asFloat ? "*" : "");
  }
  return stamps;
}

}  // namespace

int main() {
  int wrong = 0;
  for (const Mode& mode : modes) {
    TimedCommand timeline;
    CommandList queued{{oldValue, 100}, {oldValue, 200}, {oldValue, 300}, {oldValue, 400}};
    timeline.pushTimedCommand(queued, TimedCommand::MERGE);
    const std::string before = stampsOf(timeline.commandList);

    CommandList pushed{{newValue, 250}, {newValue, 350}};
    timeline.pushTimedCommand(pushed, mode.type);  // leaves `pushed` empty
    const std::string after = stampsOf(timeline.commandList);
    std::printf("%-12s  %s -> %s\n", mode.name, before.c_str(), after.c_str());
    wrong += after == mode.expected && pushed.empty() ? 0 : 1;
  }
  return wrong;
}
