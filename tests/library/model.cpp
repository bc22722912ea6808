#include "model.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>

namespace model {
namespace {

int distance(std::uint32_t a, std::uint32_t b) {
  std::int64_t d = static_cast<std::int32_t>(a - b);
  if (std::abs(d) > 0x40000000) {
    d = (a > 0x40000000 ? d : std::int64_t{a} + b) - 0x7FFFFFFF;
  }
  return static_cast<int>(static_cast<std::uint32_t>(d));
}

void start(Timeline& timeline, float value, std::uint32_t time) {
  timeline.currentValue = timeline.lastCommandValue = value;
  timeline.lastCommandTime = time;
  timeline.firstCommand = false;
}

}  // namespace

void Machine::push(Timeline& timeline, Items& commands, int mode) {
  Items& queued = timeline.items;
  call("lock");
  call("unlock");
  mode = !queued.empty() && !commands.empty() && commands.front().ignore ? 1 : mode;
  commands.sort([](const Item& x, const Item& y) { return distance(x.time, y.time) <= 0; });
  const Items sorted = commands;
  const auto drops = [&](const Item& old) {
    return mode == 2 ||
           (mode == 3 && !sorted.empty() && distance(sorted.front().time, old.time) <= 0) ||
           (mode == 4 && !sorted.empty() && distance(sorted.back().time, old.time) >= 0);
  };
  while (!queued.empty() && drops(mode == 3 ? queued.back() : queued.front())) {
    queued.erase(mode == 3 ? std::prev(queued.end()) : queued.begin());
  }
  if (queued.size() + commands.size() > 511 || &commands == &queued) {
    return;
  }
  auto place = queued.begin();
  for (const Item& item : commands) {
    place = std::find_if(place, queued.end(),
                         [&](const Item& old) { return distance(item.time, old.time) <= 0; });
    place = std::next(queued.insert(place, item));
  }
  commands.clear();
}

void Machine::cycle(Timeline& timeline, std::uint32_t time, std::uint32_t previous) {
  if (timeline.items.empty()) {
    return;
  }
  call("lock");
  if (timeline.linear) {
    const float actual = registers[timeline.container];
    const bool agrees = actual <= timeline.currentValue && actual >= timeline.currentValue;
    call(agrees ? "read" : "read read");
    if (!agrees) {
      start(timeline, actual, time);
    }
    linearLaw(timeline, time, previous);
    output(timeline);
  } else {
    stepLaw(timeline, time);
  }
  call("unlock");
}

void Machine::stepLaw(Timeline& timeline, std::uint32_t time) {
  for (int overdue = 1; overdue > 0 && !timeline.items.empty();) {
    const Item next = timeline.items.front();
    overdue = next.ignore ? 1 : distance(time, next.time);
    if (overdue >= 0) {
      timeline.items.pop_front();
    }
    if (overdue >= 0 && !next.ignore) {
      values[timeline.attribute] = next.value;
      call(callWith("set", next.value.asFloat));
    }
  }
}

void Machine::linearLaw(Timeline& timeline, std::uint32_t time, std::uint32_t previous) {
  while (!timeline.items.empty() && timeline.items.front().ignore) {
    timeline.items.pop_front();
  }
  if (timeline.items.empty()) {
    return;
  }
  const Item next = timeline.items.front();
  const float target = next.value.asFloat;
  const int overdue = distance(time, next.time);
  if (timeline.firstCommand) {
    start(timeline, target, next.time);
  } else if (overdue >= 0) {
    timeline.items.pop_front();
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

void Machine::output(Timeline& timeline) {
  if (timeline.bound) {
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

void Machine::build(int start) {
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
        timeline.items.clear();
        timeline.bound = true;
        timeline.container = &container;
        chooseLaw(timeline);
        driven.push_back(index);
      }
    }
  }
}

void Machine::chooseLaw(Timeline& timeline) {
  timeline.linear = platform_.attributes[timeline.attribute].typeCode == 7 &&
                    (!timeline.bound || timeline.container->interpolation);
}

}  // namespace model
