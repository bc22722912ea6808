// Random pushes, cycles and pops, compared after every step with a model that
// is written for plainness alone. Flags: --seed=N --steps=N

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <list>
#include <random>

#include "fakeplatform.h"
#include "timedcommand/timedcommand.h"

using Item = TimedCommand::commandItem;
using Items = std::list<Item>;

static bool operator==(const Item& a, const Item& b) {
  return a.value.asTextOffset == b.value.asTextOffset && a.time == b.time && a.ignore == b.ignore;
}

namespace {

unsigned int seed = 1, steps = 20000;

int distance(std::uint32_t a, std::uint32_t b) {
  std::int64_t d = static_cast<std::int32_t>(a - b);
  if (std::abs(d) > 0x40000000) {
    d = (a > 0x40000000 ? d : std::int64_t{a} + b) - 0x7FFFFFFF;
  }
  return static_cast<int>(static_cast<std::uint32_t>(d));
}

struct Model {
  bool linear, bound, tracked, firstCommand = true;
  float actuator = 0, limit = 0, currentValue = NAN, lastCommandValue = 0;
  std::uint32_t lastCommandTime = 0;
  hal::AttrGeneric attribute;
  Items timeline;
  std::string calls;

  void push(Items& commands, int type) {
    type = !timeline.empty() && !commands.empty() && commands.front().ignore ? 1 : type;
    commands.sort([](const Item& x, const Item& y) { return distance(x.time, y.time) <= 0; });
    const Items sorted = commands;
    const auto drops = [&](const Item& old) {
      return type == 2 ||
             (type == 3 && !sorted.empty() && distance(sorted.front().time, old.time) <= 0) ||
             (type == 4 && !sorted.empty() && distance(sorted.back().time, old.time) >= 0);
    };
    while (!timeline.empty() && drops(type == 3 ? timeline.back() : timeline.front())) {
      timeline.erase(type == 3 ? std::prev(timeline.end()) : timeline.begin());
    }
    if (timeline.size() + commands.size() > 511 || &commands == &timeline) {
      return;
    }
    auto place = timeline.begin();
    for (const Item& item : commands) {
      place = std::find_if(place, timeline.end(),
                           [&](const Item& old) { return distance(item.time, old.time) <= 0; });
      place = std::next(timeline.insert(place, item));
    }
    commands.clear();
  }

  void cycle(std::uint32_t time, std::uint32_t previous) {
    const bool moved = std::isnan(actuator) || std::isnan(currentValue) || actuator != currentValue;
    calls = !linear ? "lock" : moved ? "lock read read" : "lock read";
    if (linear && moved) {
      start(actuator, time);
    }
    consume(time, previous);
    if (linear && bound) {
      calls += " " + callWith("limit", currentValue);
      currentValue = actuator = std::clamp(currentValue, -limit, limit);
      calls += " " + callWith("write", currentValue);
    } else if (linear) {
      attribute.asFloat = currentValue;
      calls += tracked ? " " + callWith("track", currentValue) : "";
    }
    calls += " unlock";
  }

  void consume(std::uint32_t time, std::uint32_t previous) {
    for (int overdue = 1; overdue > 0 && !timeline.empty();) {
      const Item next = timeline.front();
      overdue = next.ignore ? 1 : distance(time, next.time);
      if (linear && firstCommand && !next.ignore) {
        return start(next.value.asFloat, next.time);
      }
      timeline.erase(timeline.begin(), std::next(timeline.begin(), overdue >= 0 ? 1 : 0));
      if (linear && overdue < 0) {
        const bool lately = distance(time, previous) >= distance(time, lastCommandTime);
        const std::uint32_t t0 = lately ? lastCommandTime : previous;
        const float v0 = lately ? lastCommandValue : currentValue;
        const int span = distance(next.time, t0);
        const float product = static_cast<float>(distance(time, t0)) * (next.value.asFloat - v0);
        currentValue = product / static_cast<float>(span == 0 ? 1 : span) + v0;
      } else if (linear && !next.ignore) {
        start(next.value.asFloat, next.time);
      } else if (overdue >= 0 && !next.ignore) {
        attribute = next.value;
        calls += " " + callWith("set", next.value.asFloat);
      }
    }
  }

  void start(float value, std::uint32_t time) {
    currentValue = lastCommandValue = value;
    lastCommandTime = time;
    firstCommand = false;
  }
};

/// One timeline with an actuator, beside its model.
struct Episode {
  explicit Episode(std::mt19937& random) : random_(random) {
    spread_ = pick(5) == 0 ? 0 : 4U << (pick(4) * 9);
    now_ = corner();
    model_.linear = (timeline_.interpolationPossible = pick(4) != 0) != 0;
    model_.bound = (timeline_.isSubDevice = pick(4) != 0) != 0;
    model_.tracked = pick(2) == 0;
    model_.limit = arm_.limit = pick(2) == 0 ? 2.0F : 1e30F;
    timeline_.deviceAttr = &platform_.attributes[0];
    timeline_.deviceAttr->flags = model_.tracked ? 0x40 : 0xBF;
    timeline_.subDeviceAccessor = hal::SubDeviceAccessor(&arm_);
    if (pick(2) == 0) {
      timeline_.currentValue = model_.currentValue = 0;
    }
  }

  void step() {
    const std::uint32_t kind = pick(20);
    platform_.take();
    model_.calls = kind < 10 ? "" : "lock unlock";
    if (kind < 10) {
      const std::uint32_t previous = pick(10) == 0 ? stamp() : now_;
      now_ = pick(20) == 0 ? stamp() : now_ + pick(spread_ / 16 + 3);
      arm_.command = model_.actuator = pick(10) == 0 ? value() : model_.actuator;
      timeline_.run(now_, previous);
      if (!model_.timeline.empty()) {
        model_.cycle(now_, previous);
      }
    } else if (kind == 10 && !model_.timeline.empty()) {
      EXPECT_EQ(timeline_.getNextCommand(), &timeline_.commandList.front());
      EXPECT_EQ(platform_.take(), model_.calls);
      EXPECT_EQ(timeline_.popNexCommand(), model_.timeline.front());
      model_.timeline.erase(model_.timeline.begin());
    } else {
      push(static_cast<int>(pick(10)) - 2, kind == 11);
    }
    compare();
  }

  void compare() {
    EXPECT_EQ(Items(timeline_.commandList.begin(), timeline_.commandList.end()), model_.timeline);
    EXPECT_EQ(platform_.take(), model_.calls);
    EXPECT_EQ(callWith("", timeline_.currentValue), callWith("", model_.currentValue));
    EXPECT_EQ(callWith("", timeline_.lastCommandValue), callWith("", model_.lastCommandValue));
    EXPECT_EQ(timeline_.lastCommandTime, model_.lastCommandTime);
    EXPECT_EQ(timeline_.firstCommand, model_.firstCommand);
    EXPECT_EQ(timeline_.deviceAttr->value.asTextOffset, model_.attribute.asTextOffset);
  }

  void push(int type, bool intoItself) {
    CommandList pushed;
    const std::uint32_t count = pick(20) == 0 ? 480 + pick(40) : pick(pick(5) == 0 ? 60 : 6);
    // Neighbours that rise by this much go round the clock without being sorted.
    const std::uint32_t stride = pick(10) == 0 ? 0x40000000 - pick(2) : 0;
    for (std::uint32_t i = 0; i < count && !intoItself; ++i) {
      hal::AttrGeneric record;
      record.asTextOffset = std::uint64_t{random_()} << 32;
      record.asFloat = value();
      pushed.emplace_back(record, stride == 0 ? stamp() : now_ + i * stride, pick(8) == 0);
    }
    Items items(pushed.begin(), pushed.end());
    timeline_.pushTimedCommand(intoItself ? timeline_.commandList : pushed,
                               static_cast<TimedCommand::commandType>(type));
    model_.push(intoItself ? model_.timeline : items, type);
    EXPECT_EQ(Items(pushed.begin(), pushed.end()), items);
  }

  float value() {
    const float special[] = {NAN, -0.0F, 1e-45F, 1e20F};
    return pick(20) == 0 ? special[pick(4)] : static_cast<float>(pick(40)) / 8 - 2.5F;
  }

  std::uint32_t corner() { return pick(4) * 0x40000000 + pick(5) - 2; }
  std::uint32_t stamp() { return spread_ == 0 ? corner() : now_ + pick(spread_) - spread_ / 4; }
  std::uint32_t pick(std::uint32_t below) { return static_cast<std::uint32_t>(random_()) % below; }

  std::mt19937& random_;
  FakePlatform platform_;
  FakeContainer& arm_ = platform_.add("Arm", {"Value"});
  TimedCommand timeline_;
  Model model_;
  std::uint32_t now_ = 0, spread_ = 0;  // no spread: stamps about which the clock wraps
};

}  // namespace

TEST(Timeline, BehavesAsTheModel) {
  std::mt19937 random(seed);
  for (unsigned int step = 0; step < steps && !HasFailure(); step += 100) {
    SCOPED_TRACE(testing::Message() << "--seed=" << seed << " --steps=" << step + 100);
    Episode episode(random);
    for (int i = 0; i < 100 && !HasFailure(); ++i) {
      episode.step();
    }
  }
}

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  for (int i = 1; i < argc; ++i) {
    if (std::sscanf(argv[i], "--seed=%u", &seed) + std::sscanf(argv[i], "--steps=%u", &steps) < 1) {
      return 2;
    }
  }
  return RUN_ALL_TESTS();
}
