#pragma once

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "attrfullname/attrfullname.h"
#include "model.h"
#include "timedcommandmanager/timedcommandmanager.h"

namespace model {

/// Timelines by number: those of the table, then the copies beside it.
constexpr int attributeCount = 8, slots = attributeCount + 3;

enum class Kind { push, pushItself, cycle, cycleOne, move, pop, copy, bind, build };

/// What does not apply, for want of a timeline or of a command, is left out.
struct Operation {
  Kind kind = Kind::cycle;
  int slot = 0;
  /// Push: the mode. Copy: the source. Bind: the container. Build: the first index.
  int other = 0;
  /// Push: 1 by index, 2 by name. Copy: 1 a new object. Bind: 1 as its "Value", 2 as agreeing.
  int way = 0;
  std::uint32_t time = 0, previous = 0;
  float value = 0;
  /// Push by name: the name. Move: the container. Build: every container that is there, "a"
  /// an actuator, "s" one of steps, "i" one of integers, "." none.
  std::string text;
  std::vector<Item> items;
};
std::string textOf(const Operation& done);

/// A machine with four containers, and its machine.
class World {
 public:
  World();

  /// Does it on both sides. The result says what differs, or nothing.
  std::string apply(const Operation& op);

  [[nodiscard]] bool exists(int slot) const;
  Timeline& at(int slot);

  FakePlatform platform;
  Machine machine = Machine(platform);

 private:
  TimedCommand& real(int slot);
  void applyToOne(const Operation& op, TimedCommand& timeline, Timeline& expected);
  void applyPush(const Operation& op, TimedCommand& timeline, Timeline& expected);
  void applyBind(const Operation& op, TimedCommand& timeline, Timeline& expected);
  void applyBuild(const Operation& op);
  void expect(bool holds, const std::string& what);
  void compare();
  void compareTimelines(int slot, const TimedCommand& found, const Timeline& expected);

  TimedCommandManager manager_;
  AttrFullName names_;
  std::vector<std::unique_ptr<TimedCommand>> copies_;
  std::vector<Timeline> expectedCopies_;
  std::set<int> touched_;
  std::string difference_;
};

}  // namespace model
