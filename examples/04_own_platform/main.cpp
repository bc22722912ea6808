// A platform of your own. The other files of this folder define everything that
// platform/ declares, for the 24 attributes of six joints in plain memory. Their
// comments state the duty of each function, and what happens if it is neglected.
//
// This program shows the first duty. The knee moves from 0 to 1 twice. The second
// time its command register rounds to steps of 1/256, as those of motors often do.
// Then it falls behind, and jumps at the end. Prints:
//   exact register: 0.500 halfway, 1.000 at the end
//   rounding register: 0.297 halfway, 1.000 at the end

#include <cmath>
#include <cstdio>

#include "attrfullname/attrfullname.h"
#include "memory.h"
#include "registry/attrfullnamemanager.h"
#include "timedcommandmanager/timedcommandmanager.h"

namespace {

constexpr unsigned int cycleMs = 10;
constexpr unsigned int durationMs = 1000;

/// The value of the knee's command register halfway to 1.
float moveKnee(const char* registerName, TimedCommandManager& commands, unsigned int start) {
  Joint& knee = memory.joints[4];
  knee.value().storeFloat(0.0F);
  CommandList list;
  list.emplace_back(hal::AttrGeneric(1.0F), start + durationMs);
  commands.AddTimedCommand("Knee/Value", list, TimedCommand::REPLACE);
  float halfway = 0.0F;
  for (unsigned int now = start; now <= start + durationMs; now += cycleMs) {
    commands.run(now, now - cycleMs);
    halfway = now == start + durationMs / 2 ? knee.value().loadFloat() : halfway;
  }
  std::printf("%s register: %.3f halfway, %.3f at the end\n", registerName, double{halfway},
              double{knee.value().loadFloat()});
  return halfway;
}

}  // namespace

int main() {
  AttrFullName names;
  TimedCommandManager commands;
  setAttrFullNameManager(&names);
  names.initNameList(0);
  commands.initTimedCommand(0);

  const float exact = moveKnee("exact", commands, 0);
  memory.registerRounds = true;
  const float rounding = moveKnee("rounding", commands, durationMs + cycleMs);
  return std::abs(exact - 0.5F) < 1e-5F && rounding < 0.4F ? 0 : 1;
}
