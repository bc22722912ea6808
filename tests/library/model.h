#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <list>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "fakeplatform.h"
#include "timedcommand/timedcommand.h"

/// What the timelines of a machine must do, written for plainness alone: lists are
/// searched, items copied, calls put down as text.
namespace model {

using Item = TimedCommand::commandItem;
using Items = std::list<Item>;

/// Named as in the library what both have.
struct Timeline {
  Items commandList;
  int attribute = 0, lock = 0;
  FakeContainer* container = nullptr;
  int isSubDevice = 0, interpolationPossible = 0;
  bool firstCommand = true;
  float currentValue = NAN, lastCommandValue = 0;
  std::uint32_t lastCommandTime = 0;
};

inline int distance(std::uint32_t a, std::uint32_t b) {
  std::int64_t d = static_cast<std::int32_t>(a - b);
  if (std::abs(d) > 0x40000000) {
    d = (a > 0x40000000 ? d : std::int64_t{a} + b) - 0x7FFFFFFF;
  }
  return static_cast<int>(static_cast<std::uint32_t>(d));
}

inline void start(Timeline& timeline, float value, std::uint32_t time) {
  timeline.currentValue = timeline.lastCommandValue = value;
  timeline.lastCommandTime = time;
  timeline.firstCommand = false;
}

class Machine {
 public:
  /// Looks at the platform for what the machine is like, never for its values.
  explicit Machine(FakePlatform& platform) : platform_(platform) {}

  std::map<FakeContainer*, float> registers;
  std::map<int, hal::AttrGeneric> values;
  std::vector<Timeline> table;
  std::vector<std::size_t> driven;
  /// The calls on the platform, as the fake one writes them down.
  std::string calls;
  /// Called as soon as a timeline is locked.
  std::function<void(Timeline&)> locked = [](Timeline&) {};
  int locks = 0;

  void push(Timeline& timeline, Items& commands, int mode) {
    Items& queued = timeline.commandList;
    mode = !queued.empty() && !commands.empty() && commands.front().ignore ? 1 : mode;
    call("lock unlock");
    locked(timeline);
    const auto comesFirst = [](const Item& x, const Item& y) {
      return distance(x.time, y.time) <= 0;
    };
    commands.sort(comesFirst);
    const Items sorted = commands;
    const auto drops = [&](const Item& old) {
      return mode == 2 ||
             (mode == 3 && !sorted.empty() && distance(sorted.front().time, old.time) <= 0) ||
             (mode == 4 && !sorted.empty() && distance(sorted.back().time, old.time) >= 0);
    };
    while (!queued.empty() && drops(mode == 3 ? queued.back() : queued.front())) {
      queued.erase(mode == 3 ? std::prev(queued.end()) : queued.begin());
    }
    if (queued.size() + commands.size() <= 511 && &commands != &queued) {
      queued.merge(commands, comesFirst);
    }
  }

  void cycle(Timeline& timeline, std::uint32_t time, std::uint32_t previous) {
    if (timeline.commandList.empty()) {
      return;
    }
    call("lock");
    locked(timeline);
    if (timeline.interpolationPossible != 0) {
      const float actual = read(timeline);
      if (!(actual <= timeline.currentValue && actual >= timeline.currentValue)) {
        start(timeline, read(timeline), time);
      }
      linearLaw(timeline, time, previous);
      output(timeline);
    } else {
      stepLaw(timeline, time);
    }
    call("unlock");
  }

  /// Builds the table, whose handles are read again from `start` on.
  void build(int start) {
    const int count = platform_.pool.attributeCount;
    call("new-lock");
    Timeline added;
    added.lock = ++locks;
    table.resize(start == 0 ? 0 : table.size());
    table.resize(static_cast<std::size_t>(count), added);
    for (int index = start; index < count; ++index) {
      table[static_cast<std::size_t>(index)].attribute = index;
      call("attribute-" + std::to_string(index));
    }
    driven.clear();
    for (auto& [name, container] : platform_.containers) {
      const int end = container.actuator ? container.lastAttrIndex : -1;
      for (int index = container.firstAttrIndex; index <= end; ++index) {
        Timeline& timeline = table[static_cast<std::size_t>(index)];
        const char* attributeName = platform_.attributes[timeline.attribute].name.get();
        if (attributeName != nullptr && attributeName == std::string("Value")) {
          call("lock unlock");
          timeline.commandList.clear();
          timeline.isSubDevice = 1;
          timeline.container = &container;
          chooseLaw(timeline);
          driven.push_back(static_cast<std::size_t>(index));
        }
      }
    }
  }

  void chooseLaw(Timeline& timeline) {
    const bool isFloat = platform_.attributes[timeline.attribute].typeCode == 7;
    const bool isFree = timeline.isSubDevice == 0 || timeline.container->interpolation;
    timeline.interpolationPossible = isFloat && isFree ? 1 : 0;
  }

 private:
  void call(const std::string& text) { calls += (calls.empty() ? "" : " ") + text; }

  float read(Timeline& timeline) {
    call("read");
    float& value = registers[timeline.container];
    return std::exchange(value, value + timeline.container->drift);
  }

  void stepLaw(Timeline& timeline, std::uint32_t time) {
    for (int overdue = 1; overdue > 0 && !timeline.commandList.empty();) {
      const Item next = timeline.commandList.front();
      overdue = next.ignore ? 1 : distance(time, next.time);
      if (overdue >= 0) {
        timeline.commandList.pop_front();
      }
      if (overdue >= 0 && !next.ignore) {
        values[timeline.attribute] = next.value;
        call(callWith("set", next.value.asFloat));
      }
    }
  }

  void linearLaw(Timeline& timeline, std::uint32_t time, std::uint32_t previous) {
    while (!timeline.commandList.empty() && timeline.commandList.front().ignore) {
      timeline.commandList.pop_front();
    }
    if (timeline.commandList.empty()) {
      return;
    }
    const Item next = timeline.commandList.front();
    const float target = next.value.asFloat;
    const int overdue = distance(time, next.time);
    if (timeline.firstCommand) {
      start(timeline, target, next.time);
    } else if (overdue >= 0) {
      timeline.commandList.pop_front();
      start(timeline, target, next.time);
      if (overdue > 0) {
        linearLaw(timeline, time, previous);
      }
    } else {
      const bool lately = distance(time, previous) >= distance(time, timeline.lastCommandTime);
      const std::uint32_t t0 = lately ? timeline.lastCommandTime : previous;
      const float v0 = lately ? timeline.lastCommandValue : timeline.currentValue;
      const int span = distance(next.time, t0);
      const float product = static_cast<float>(distance(time, t0)) * (target - v0);
      timeline.currentValue = product / static_cast<float>(span == 0 ? 1 : span) + v0;
    }
  }

  void output(Timeline& timeline) {
    if (timeline.isSubDevice != 0) {
      const float limit = timeline.container->limit;
      call(callWith("limit", timeline.currentValue));
      timeline.currentValue = std::clamp(timeline.currentValue, -limit, limit);
      registers[timeline.container] = timeline.currentValue;
      call(callWith("write", timeline.currentValue));
      return;
    }
    values[timeline.attribute].asFloat = timeline.currentValue;
    if ((platform_.attributes[timeline.attribute].flags & 0x40) != 0) {
      call(callWith("track", timeline.currentValue));
    }
  }

  FakePlatform& platform_;
};

}  // namespace model
