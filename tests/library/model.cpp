#include "model.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>

#include "fakeplatform.h"

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
    const float actual = timeline.container->command;
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
      attributes[timeline.attribute].value = next.value;
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
    Container& container = *timeline.container;
    call(callWith("limit", timeline.currentValue));
    container.command = timeline.currentValue =
        std::clamp(timeline.currentValue, -container.limit, container.limit);
    call(callWith("write", timeline.currentValue));
    return;
  }
  attributes[timeline.attribute].value.asFloat = timeline.currentValue;
  if (attributes[timeline.attribute].tracked) {
    call(callWith("track", timeline.currentValue));
  }
}

void Machine::build(int start, int count) {
  call("new-lock");
  Timeline added;
  added.lock = ++locks;
  if (start == 0) {
    table.clear();
  }
  table.resize(static_cast<std::size_t>(count), added);
  for (int index = start; index < count; ++index) {
    table[static_cast<std::size_t>(index)].attribute = index;
    call("attribute-" + std::to_string(index));
  }
  driven.clear();
  for (auto& [name, container] : containers) {
    const int end = container.actuator ? std::min(container.first + container.size, count) : 0;
    for (int index = container.first; index < end; ++index) {
      Timeline& timeline = table[static_cast<std::size_t>(index)];
      const char* attributeName = attributes[timeline.attribute].name;
      if (attributeName == nullptr || attributeName != std::string("Value")) {
        continue;
      }
      call("lock unlock");
      timeline.items.clear();
      timeline.bound = true;
      timeline.container = &container;
      chooseLaw(timeline);
      driven.push_back(index);
    }
  }
}

void Machine::chooseLaw(Timeline& timeline) {
  timeline.linear = attributes[timeline.attribute].typeCode == 7 &&
                    (!timeline.bound || timeline.container->interpolation);
}

int Machine::indexOf(const std::string& key) {
  int found = -1;
  for (const auto& [name, container] : containers) {
    for (int index = container.first; index < container.first + container.size; ++index) {
      const char* attributeName = attributes[index].name;
      if (attributeName != nullptr && name + "/" + attributeName == key) {
        found = std::max(found, index);
      }
    }
  }
  return found;
}

}  // namespace model
