#pragma once

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "attrfullname/attrfullname.h"
#include "model.h"
#include "registry/attrfullnamemanager.h"
#include "timedcommandmanager/timedcommandmanager.h"

namespace model {

/// Timelines by number: the copies beside the table, then those of the table.
constexpr std::size_t copyCount = 3, attributeCount = 10, slotCount = copyCount + attributeCount;
// In the order of the indexes, which is not that of the walk.
constexpr const char* containerNames[] = {"Leg", "Arm", "Rack", "Paw"};
// Of equal names the highest index has the key; some have no name.
constexpr const char* keys[attributeCount] = {"Leg/Value", "Leg/Value2", nullptr,      "Arm/Value",
                                              nullptr,     "Rack/value", "Rack/Value", "Paw/Value",
                                              "Paw/Val",   "Paw/xValue"};

template <class List>
bool same(const List& list, const Items& items) {
  return std::equal(list.begin(), list.end(), items.begin(), items.end(),
                    [](const Item& a, const Item& b) {
                      return a.value.asTextOffset == b.value.asTextOffset && a.time == b.time &&
                             a.ignore == b.ignore;
                    });
}

/// What both sides name alike, but for the items.
template <class Side>
std::string stateOf(const Side& timeline) {
  return "sub-device " + std::to_string(timeline.isSubDevice) + " linear " +
         std::to_string(timeline.interpolationPossible) + (timeline.firstCommand ? " first" : "") +
         callWith(" current", timeline.currentValue) +
         callWith(" last", timeline.lastCommandValue) + " at " +
         std::to_string(timeline.lastCommandTime);
}

template <class List>
std::string textOf(const List& items) {
  std::string text = ", items";
  for (const Item& item : items) {
    text += (item.ignore ? " !" : " ") + std::to_string(item.time) +
            callWith("", item.value.asFloat) + "#" + std::to_string(item.value.asTextOffset >> 32);
  }
  return text;
}

/// A machine with four containers and its model, both moved by the same random operations.
class World {
 public:
  /// `pick` gives numbers below the one that it is given.
  explicit World(std::function<std::uint32_t(std::uint32_t)> pick)
      : pick_(std::move(pick)), copies_(copyCount) {
    spread_ = pick_(5) == 0 ? 0 : 4U << (pick_(4) * 9);
    now_ = corner();
    favourite_ = pick_(slotCount);
    platform_.add("Leg", {"Value", "Value2"});
    platform_.add("Arm", {"Value", "Value"}).limit = 2;
    platform_.add("Rack", {nullptr, "value", "Value"});
    platform_.add("Paw", {"Value", "Val", "xValue"});
    for (auto& [index, attribute] : platform_.attributes) {
      attribute.flags = index % 2 == 0 ? 0x40 : 0xBF;
    }
    for (TimedCommand& copy : copies_) {
      copy.deviceAttr = &platform_.attributes[0];
      expectedCopies_.emplace_back().lock = ++machine_.locks;
    }
    names_.initNameList(0);
    setAttrFullNameManager(&names_);
    build();
    watchTheLock();
  }

  /// Does an operation on both sides. The result is empty, or says what differs now.
  std::string step() {
    // The first three are the frequent ones. The first five change nothing but under the lock.
    static constexpr std::pair<const char*, void (World::*)()> operations[] = {
        {"push", &World::push},
        {"cycle", &World::cycle},
        {"cycle of one", &World::cycleOne},
        {"push itself", &World::pushItself},
        {"pop", &World::pop},
        {"move", &World::move},
        {"copy", &World::copy},
        {"bind", &World::bind},
        {"build", &World::build}};
    const auto& operation = operations[pick_(pick_(3) == 0 ? 9 : 3)];
    platform_.take();
    machine_.calls.clear();
    isGuarded_ = &operation - operations < 5;
    seen_ = guarded();
    (this->*operation.second)();
    expect(!isGuarded_ || seen_ == guarded(), "what the lock guarded when it was given up");
    isGuarded_ = false;
    waiting_ = nobody;
    given_.clear();
    compare();
    return difference_.empty() ? "" : operation.first + (": " + difference_);
  }

 private:
  /// A node with what it holds, or no node and what else a timeline knows.
  using Guarded = std::vector<std::pair<const Item*, std::uint64_t>>;

  /// All that the lock guards, in order.
  Guarded guarded() {
    Guarded all;
    const auto add = [&all](const CommandList& items) {
      for (const Item& item : items) {
        all.emplace_back(&item, item.value.asTextOffset ^ item.time * 2ULL ^ (item.ignore ? 1 : 0));
      }
    };
    for (std::size_t slot = 0; slot < slotsNow(); ++slot) {
      add(real(slot).commandList);
      all.emplace_back(nullptr, std::hash<std::string>()(stateOf(real(slot))));
    }
    add(given_);
    return all;
  }

  /// Nothing that it guards may change while nobody holds it, but by others who wait for it, too.
  void watchTheLock() {
    platform_.locked = [this] {
      expect(!isGuarded_ || seen_ == guarded(), "what the lock guards before it is held");
      if (waiting_ != nobody) {
        interfere(real(waiting_).commandList);
      }
      locked_ = given_.empty() ? Guarded() : guarded();
    };
    platform_.unlocked = [this] { seen_ = isGuarded_ ? guarded() : Guarded(); };
    machine_.locked = [this](Timeline& timeline) {
      if (waiting_ != nobody) {
        interfere(timeline.commandList);
      }
    };
  }

  /// What another thread did to a timeline while this one waited for the lock.
  template <class List>
  void interfere(List& queued) {
    if (queued.empty()) {
      queued.emplace_back(hal::AttrGeneric(1.5F), now_);
    } else {
      queued.clear();
    }
  }

  /// Whether the timelines consist of nodes that were there when they were locked.
  bool areRelinked() {
    Guarded linked = guarded();
    std::sort(locked_.begin(), locked_.end());
    std::sort(linked.begin(), linked.end());
    return std::includes(locked_.begin(), locked_.end(), linked.begin(), linked.end());
  }

  void push() {
    const std::size_t to = slot();
    const TimedCommand::commandType type = mode();
    Items expected = items(at(to).commandList);
    given_.assign(expected.begin(), expected.end());
    const bool relinks = !given_.empty();
    seen_ = guarded();
    waiting_ = pick_(8) == 0 ? to : nobody;
    const std::size_t index = to - copyCount;
    if (to < copyCount) {
      real(to).pushTimedCommand(given_, type);
    } else if (keys[index] == nullptr || pick_(2) == 0) {
      expect(manager_.AddTimedCommandWithIndex(static_cast<int>(index), given_, type), "a result");
    } else {
      expect(manager_.testActuatorName(keys[index]) == static_cast<int>(index), "an index");
      expect(manager_.AddTimedCommand(keys[index], given_, type), "a result");
    }
    machine_.push(at(to), expected, type);
    expect(same(given_, expected), "the caller's list");
    expect(!relinks || areRelinked(), "a node");
  }

  void pushItself() {
    const std::size_t of = slot();
    const TimedCommand::commandType type = mode();
    real(of).pushTimedCommand(real(of).commandList, type);
    machine_.push(at(of), at(of).commandList, type);
  }

  void cycle() {
    const std::uint32_t previous = passTime();
    manager_.run(now_, previous);
    for (const std::size_t index : machine_.driven) {
      machine_.cycle(machine_.table[index], now_, previous);
    }
  }

  void cycleOne() {
    const std::size_t of = slot();
    const std::uint32_t previous = passTime();
    waiting_ = pick_(8) == 0 ? of : nobody;
    real(of).run(now_, previous);
    machine_.cycle(at(of), now_, previous);
  }

  void move() {
    FakeContainer& container = platform_.containers[containerNames[pick_(4)]];
    container.command = machine_.registers[&container] = value();
    container.drift = pick_(8) == 0 ? 0.25F : -0.0F;
  }

  void pop() {
    const std::size_t of = slot();
    Items& expected = at(of).commandList;
    if (!expected.empty()) {
      machine_.calls = "lock unlock lock unlock";
      expect(real(of).getNextCommand() == &real(of).commandList.front(), "the head");
      expect(same(Items{real(of).popNexCommand()}, Items{expected.front()}), "what was popped");
      expected.pop_front();
    }
  }

  void copy() {
    const std::size_t from = slot(), to = slot();
    const TimedCommand made(real(from));
    real(to) = pick_(2) == 0 ? made : real(from);
    at(to) = Timeline(at(from));
  }

  void bind() {
    const std::size_t of = slot();
    const std::uint32_t way = pick_(3);
    FakeContainer& container = platform_.containers[containerNames[pick_(4)]];
    at(of).container = &container;
    real(of).subDeviceAccessor = hal::SubDeviceAccessor(&container);
    real(of).isSubDevice = at(of).isSubDevice = way == 0 ? 0 : 1;
    if (way == 2) {  // not moved since
      real(of).currentValue = at(of).currentValue = container.command;
    }
    real(of).testIfInterpolationPossible();
    machine_.chooseLaw(at(of));
  }

  void build() {
    const int lengths[] = {2, 2, 3, 3};
    const std::uint32_t there = pick_(2) == 0 ? 4 : pick_(5);
    platform_.pool.attributeCount = 0;
    for (std::uint32_t i = 0; i < 4; ++i) {
      FakeContainer& container = platform_.containers[containerNames[i]];
      container.lastAttrIndex = container.firstAttrIndex + (i < there ? lengths[i] : 0) - 1;
      container.actuator = i < there && pick_(6) != 0;
      container.interpolation = pick_(6) != 0;
      const std::uint8_t typeCode = pick_(3) != 0 ? 7 : pick_(2) == 0 ? 5 : 8;
      for (int index = container.firstAttrIndex; index <= container.lastAttrIndex; ++index) {
        platform_.attributes[index].typeCode = typeCode;
        ++platform_.pool.attributeCount;
      }
    }
    const int first = std::min(static_cast<int>(pick_(attributeCount + 1)),
                               static_cast<int>(machine_.table.size()));
    manager_.initTimedCommand(first);
    machine_.build(first);
  }

  std::uint32_t corner() { return pick_(4) * 0x40000000 + pick_(5) - 2; }
  std::uint32_t stamp() { return spread_ == 0 ? corner() : now_ + pick_(spread_) - spread_ / 4; }

  /// The result is the time of the cycle before.
  std::uint32_t passTime() {
    const std::uint32_t previous = pick_(10) == 0 ? stamp() : now_;
    now_ = pick_(20) == 0 ? stamp() : now_ + pick_(spread_ / 16 + 3);
    return previous;
  }

  float value() {
    const float special[] = {NAN, -0.0F, 1e-45F, 1e20F};
    return pick_(20) == 0 ? special[pick_(4)] : static_cast<float>(pick_(40)) / 8 - 2.5F;
  }

  Items items(const Items& queued) {
    const auto room = static_cast<std::uint32_t>(511 - queued.size());
    std::uint32_t count = pick_(pick_(5) == 0 ? 60 : 6);
    if (pick_(20) == 0) {
      count = (pick_(3) == 0 ? 511 : room) - std::min(room, 1U) + pick_(4);
    }
    // Neighbours that rise by this much go round the clock without being sorted.
    const std::uint32_t stride = pick_(10) == 0 ? 0x40000000 - pick_(2) : 0;
    Items drawn;
    for (std::uint32_t i = 0; i < count; ++i) {
      hal::AttrGeneric record;
      record.asTextOffset = std::uint64_t{pick_(1000)} << 32;
      record.asFloat = value();
      std::uint32_t time = stride == 0 ? stamp() : now_ + i * stride;
      if (!queued.empty() && pick_(8) == 0) {
        time = (pick_(2) == 0 ? queued.front() : queued.back()).time;
      }
      drawn.emplace_back(record, time, pick_(8) == 0);
    }
    return drawn;
  }

  TimedCommand::commandType mode() { return static_cast<TimedCommand::commandType>(pick_(8)); }

  std::size_t slot() {
    const std::size_t picked = pick_(2) == 0 ? favourite_ : pick_(slotCount);
    return picked < slotsNow() ? picked : 0;
  }

  [[nodiscard]] std::size_t slotsNow() const { return copyCount + machine_.table.size(); }

  Timeline& at(std::size_t slot) {
    return slot < copyCount ? expectedCopies_[slot] : machine_.table[slot - copyCount];
  }

  TimedCommand& real(std::size_t slot) {
    return slot < copyCount ? copies_[slot] : manager_.commandTable[slot - copyCount];
  }

  void expect(bool holds, const std::string& what) {
    difference_ += holds ? "" : what + " differs\n";
  }

  void compare() {
    const std::string calls = platform_.take();
    expect(calls == machine_.calls, "'" + calls + "' instead of '" + machine_.calls + "'");
    for (const auto& [index, attribute] : platform_.attributes) {
      const hal::AttrGeneric &found = attribute.value, &expected = machine_.values[index];
      expect(callWith("", found.asFloat) == callWith("", expected.asFloat), "an attribute");
      expect(found.asTextOffset >> 32 == expected.asTextOffset >> 32, "more of an attribute");
    }
    for (auto& [name, container] : platform_.containers) {
      const float expected = machine_.registers[&container];
      expect(callWith("", container.command) == callWith("", expected), "a register");
    }
    if (manager_.commandTable.size() != machine_.table.size()) {
      return expect(false, "the size of the table");
    }
    std::vector<TimedCommand*> driven;
    for (const std::size_t index : machine_.driven) {
      driven.push_back(&manager_.commandTable[index]);
    }
    expect(manager_.actuatorCommands == driven, "what is driven");
    for (std::size_t slot = 0; slot < slotsNow(); ++slot) {
      compareTimelines(slot);
    }
  }

  void compareTimelines(std::size_t slot) {
    const TimedCommand& found = real(slot);
    const Timeline& expected = at(slot);
    const std::string state = stateOf(found), expectedState = stateOf(expected);
    if (state != expectedState || !same(found.commandList, expected.commandList)) {
      expect(false, "timeline " + std::to_string(slot) + ": " + state + textOf(found.commandList) +
                        "\ninstead of " + expectedState + textOf(expected.commandList) +
                        ",\nwhich");
    }
    expect(found.deviceAttr == &platform_.attributes[expected.attribute], "a handle");
    expect(expected.isSubDevice == 0 ||
               found.subDeviceAccessor.getName() == expected.container->name.get(),
           "a sub-device");
    for (std::size_t other = 0; other < slot; ++other) {
      expect((real(other).mutex == found.mutex) == (at(other).lock == expected.lock), "a lock");
    }
  }

  std::function<std::uint32_t(std::uint32_t)> pick_;
  std::uint32_t spread_, now_, favourite_;  // no spread: stamps about which the clock wraps
  FakePlatform platform_;
  Machine machine_ = Machine(platform_);
  TimedCommandManager manager_;
  AttrFullName names_;
  std::vector<TimedCommand> copies_;
  std::vector<Timeline> expectedCopies_;
  std::string difference_;
  /// What the lock guards, as it must be while nobody holds it, and as it was when it was locked.
  Guarded seen_, locked_;
  bool isGuarded_ = false;
  /// The caller's list of a push.
  CommandList given_;
  /// The timeline that others change before the lock is held. It lies behind `given_`, where a
  /// look at the first item of an empty list leads: as a rule not to zeros.
  static constexpr std::size_t nobody = ~std::size_t{0};
  std::size_t waiting_ = nobody;
};

}  // namespace model
