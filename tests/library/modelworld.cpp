#include "modelworld.h"

#include <algorithm>
#include <cmath>

#include "registry/attrfullnamemanager.h"
#include "tests/support/bits.h"

namespace model {
namespace {

// In the order of the indexes, which is not that of the walk.
const char* const containerNames[] = {"Leg", "Arm", "Rack", "Paw"};
// Of equal names the highest index; some have no name.
const std::map<std::string, int> indexes = {{"Leg/Value", 0},  {"Leg/Offset", 1}, {"Arm/Value", 3},
                                            {"Rack/value", 5}, {"Rack/Value", 6}, {"Paw/Value", 7}};

std::string textOf(const Items& items) {
  std::string text = std::to_string(items.size()) + " items";
  for (const Item& item : items) {
    text += (item.ignore ? " !" : " ") + std::to_string(item.time) +
            callWith("", item.value.asFloat) + "#" + std::to_string(item.value.asTextOffset >> 32);
  }
  return text;
}

bool same(float a, float b) {
  return bitsOf(a) == bitsOf(b) || (std::isnan(a) && std::isnan(b));
}

bool same(const hal::AttrGeneric& a, const hal::AttrGeneric& b) {
  return same(a.asFloat, b.asFloat) && a.asTextOffset >> 32 == b.asTextOffset >> 32;
}

template <class List>
bool same(const List& list, const Items& items) {
  return std::equal(list.begin(), list.end(), items.begin(), items.end(),
                    [](const Item& a, const Item& b) {
                      return same(a.value, b.value) && a.time == b.time && a.ignore == b.ignore;
                    });
}

}  // namespace

std::string textOf(const Operation& done) {
  const std::string slot = std::to_string(done.slot), other = std::to_string(done.other);
  const std::string times =
      " at " + std::to_string(done.time) + " after " + std::to_string(done.previous);
  switch (done.kind) {
    case Kind::push:
      return "push to " + (done.way == 2 ? done.text : slot) + (done.way == 1 ? " by index" : "") +
             " in mode " + other + ", " + textOf(Items(done.items.begin(), done.items.end()));
    case Kind::pushItself:
      return "push " + slot + " into itself in mode " + other;
    case Kind::cycle:
      return "cycle of all" + times;
    case Kind::cycleOne:
      return "cycle of " + slot + times;
    case Kind::move:
      return "move " + done.text + callWith(" to ", done.value);
    case Kind::pop:
      return "pop of " + slot;
    case Kind::copy:
      return "copy of " + other + " to " + slot + (done.way == 1 ? ", made anew" : "");
    case Kind::bind:
      return "bind " + slot + " to container " + other + " in way " + std::to_string(done.way);
    case Kind::build:
      break;
  }
  return "build from " + other + " of " + done.text;
}

World::World() {
  platform.add("Leg", {"Value", "Offset"});
  platform.add("Arm", {"Value", "Value"}).limit = 2;
  platform.add("Rack", {nullptr, "value", "Value"});
  platform.add("Paw", {"Value"});
  for (int i = 0; i < attributeCount; ++i) {
    platform.attributes[i].flags = i % 2 == 0 ? 0x40 : 0xBF;
  }
  for (int i = attributeCount; i < slots; ++i) {
    copies_.push_back(std::make_unique<TimedCommand>());
    copies_.back()->deviceAttr = &platform.attributes[0];
    expectedCopies_.emplace_back().lock = ++machine.locks;
  }
  names_.initNameList(0);
  setAttrFullNameManager(&names_);
}

std::string World::apply(const Operation& op) {
  platform.take();
  machine.calls.clear();
  difference_.clear();
  touched_ = {op.slot};
  if (op.kind == Kind::cycle) {
    manager_.run(op.time, op.previous);
    for (const int index : machine.driven) {
      machine.cycle(at(index), op.time, op.previous);
      touched_.insert(index);
    }
  } else if (op.kind == Kind::build) {
    applyBuild(op);
  } else if (op.kind == Kind::move) {
    FakeContainer& container = platform.containers[op.text];
    container.command = machine.registers[&container] = op.value;
  } else if (exists(op.slot)) {
    applyToOne(op, real(op.slot), at(op.slot));
  }
  compare();
  return difference_;
}

bool World::exists(int slot) const {
  return slot >= attributeCount || slot < static_cast<int>(machine.table.size());
}

Timeline& World::at(int slot) {
  return slot < attributeCount ? machine.table[static_cast<std::size_t>(slot)]
                               : expectedCopies_[static_cast<std::size_t>(slot - attributeCount)];
}

TimedCommand& World::real(int slot) {
  return slot < attributeCount ? manager_.commandTable[static_cast<std::size_t>(slot)]
                               : *copies_[static_cast<std::size_t>(slot - attributeCount)];
}

void World::applyToOne(const Operation& op, TimedCommand& timeline, Timeline& expected) {
  if (op.kind == Kind::push || op.kind == Kind::pushItself) {
    applyPush(op, timeline, expected);
  } else if (op.kind == Kind::cycleOne) {
    timeline.run(op.time, op.previous);
    machine.cycle(expected, op.time, op.previous);
  } else if (op.kind == Kind::pop && !expected.items.empty()) {
    machine.calls = "lock unlock lock unlock";
    expect(timeline.getNextCommand() == &timeline.commandList.front(), "next command");
    expect(same(std::vector<Item>{timeline.popNexCommand()}, {expected.items.front()}), "pop");
    expected.items.pop_front();
  } else if (op.kind == Kind::copy && exists(op.other)) {
    expected = Timeline(at(op.other));
    if (op.way == 1 && op.slot >= attributeCount) {
      copies_[static_cast<std::size_t>(op.slot - attributeCount)] =
          std::make_unique<TimedCommand>(real(op.other));
    } else {
      timeline = real(op.other);
    }
    touched_.insert(op.other);
  } else if (op.kind == Kind::bind) {
    applyBind(op, timeline, expected);
  }
}

void World::applyPush(const Operation& op, TimedCommand& timeline, Timeline& expected) {
  CommandList pushed(op.items.begin(), op.items.end());
  Items items(op.items.begin(), op.items.end());
  const auto mode = static_cast<TimedCommand::commandType>(op.other);
  if (op.kind == Kind::pushItself) {
    timeline.pushTimedCommand(timeline.commandList, mode);
    return machine.push(expected, expected.items, op.other);
  }
  int slot = op.slot;
  if (op.way == 0 || slot >= attributeCount) {
    timeline.pushTimedCommand(pushed, mode);
  } else if (op.way == 1) {
    expect(manager_.AddTimedCommandWithIndex(slot, pushed, mode), "result");
  } else {
    const auto found = indexes.find(op.text);
    slot = found == indexes.end() ? -1 : found->second;
    if (!exists(slot)) {
      return;
    }
    expect(manager_.AddTimedCommand(op.text, pushed, mode) == (slot >= 0), "result");
  }
  if (slot >= 0) {
    machine.push(at(slot), items, op.other);
    touched_.insert(slot);
  }
  expect(same(pushed, items), "the caller's list");
}

void World::applyBind(const Operation& op, TimedCommand& timeline, Timeline& expected) {
  FakeContainer& container = platform.containers[containerNames[op.other]];
  expected.container = &container;
  timeline.subDeviceAccessor = hal::SubDeviceAccessor(&container);
  timeline.isSubDevice = op.way == 0 ? 0 : 1;
  expected.bound = op.way != 0;
  if (op.way == 2) {
    timeline.currentValue = expected.currentValue = container.command;
  }
  timeline.testIfInterpolationPossible();
  machine.chooseLaw(expected);
}

void World::applyBuild(const Operation& op) {
  // The last index of each container while it is there.
  const int lastIndexes[] = {1, 3, 6, 7};
  platform.pool.attributeCount = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    FakeContainer& container = platform.containers[containerNames[i]];
    const char letter = i < op.text.size() ? op.text[i] : '.';
    container.lastAttrIndex = container.firstAttrIndex - 1;
    if (i < op.text.size()) {
      container.lastAttrIndex = lastIndexes[i];
      platform.pool.attributeCount = static_cast<std::uint16_t>(lastIndexes[i] + 1);
    }
    container.actuator = letter != '.';
    container.interpolation = letter != 's';
    for (int index = container.firstAttrIndex; index <= container.lastAttrIndex; ++index) {
      platform.attributes[index].typeCode = letter == 'i' ? 5 : 7;
    }
  }
  const int start = std::min(op.other, static_cast<int>(machine.table.size()));
  manager_.initTimedCommand(start);
  machine.build(start);
  touched_.clear();
  for (int slot = 0; slot < slots; ++slot) {
    touched_.insert(slot);
  }
}

void World::expect(bool holds, const std::string& what) {
  difference_ += holds || !difference_.empty() ? "" : what;
}

void World::compare() {
  const std::string calls = platform.take();
  expect(calls == machine.calls, "calls '" + calls + "' instead of '" + machine.calls + "'");
  expect(manager_.commandTable.size() == machine.table.size(), "size of the table");
  expect(std::equal(manager_.actuatorCommands.begin(), manager_.actuatorCommands.end(),
                    machine.driven.begin(), machine.driven.end(),
                    [&](const TimedCommand* timeline, int index) {
                      return difference_.empty() && timeline == &real(index);
                    }),
         "driven timelines");
  for (const auto& [index, attribute] : platform.attributes) {
    expect(same(attribute.value, machine.values[index]), "value of an attribute");
  }
  for (auto& [name, container] : platform.containers) {
    expect(same(container.command, machine.registers[&container]), "register of " + name);
  }
  for (const int slot : touched_) {
    if (difference_.empty() && exists(slot)) {
      compareTimelines(slot, real(slot), at(slot));
    }
  }
}

void World::compareTimelines(int slot, const TimedCommand& found, const Timeline& expected) {
  const std::string of = " of " + std::to_string(slot);
  const Items items(found.commandList.begin(), found.commandList.end());
  expect(found.deviceAttr == &platform.attributes[expected.attribute], "attribute" + of);
  expect(found.isSubDevice == (expected.bound ? 1 : 0), "binding" + of);
  expect(!expected.bound || found.subDeviceAccessor.getName() == expected.container->name.get(),
         "container" + of);
  expect(found.interpolationPossible == (expected.linear ? 1 : 0), "law" + of);
  expect(same(found.currentValue, expected.currentValue), "current value" + of);
  expect(same(found.lastCommandValue, expected.lastCommandValue), "last value" + of);
  expect(found.lastCommandTime == expected.lastCommandTime, "last time" + of);
  expect(found.firstCommand == expected.firstCommand, "first command" + of);
  for (int other = 0; other < slots; ++other) {
    expect(
        !exists(other) || (real(other).mutex == found.mutex) == (at(other).lock == expected.lock),
        "lock" + of);
  }
  if (!same(items, expected.items)) {
    expect(false, "items" + of + ": " + textOf(items) + " instead of " + textOf(expected.items));
  }
}

}  // namespace model
