// Pushes and cycles on the timelines of a simulated machine. Each byte begins a
// step, and the bytes behind it say which.

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "require.h"
#include "simulation/machine.h"
#include "timedcommandmanager/timedcommandmanager.h"

namespace {

using Item = TimedCommand::commandItem;
using Items = std::vector<Item>;

simulation::MachineDescription twoActuators() {
  simulation::MachineDescription description;
  for (const bool interpolates : {true, false}) {
    simulation::Actuator actuator;
    actuator.name = interpolates ? "line" : "step";
    actuator.minimum = -2.0F;
    actuator.maximum = 2.0F;
    actuator.interpolates = interpolates;
    description.actuators.push_back(actuator);
  }
  return description;
}

/// The bytes of an input, one after the other; zeros behind the last.
class Bytes {
 public:
  Bytes(const std::uint8_t* data, std::size_t size) : next_(data), end_(data + size) {}

  [[nodiscard]] bool left() const { return next_ != end_; }
  std::uint32_t take() { return left() ? *next_++ : 0; }
  std::uint32_t takeWord() {
    std::uint32_t word = 0;
    for (int i = 0; i < 4; ++i) {
      word = word << 8U | take();
    }
    return word;
  }

 private:
  const std::uint8_t* next_;
  const std::uint8_t* const end_;
};

bool areEqual(const Item& one, const Item& other) {
  return one.value.asTextOffset == other.value.asTextOffset && one.time == other.time &&
         one.ignore == other.ignore;
}

template <typename List>
bool areEqual(const Items& expected, const List& list) {
  return std::equal(expected.begin(), expected.end(), list.begin(), list.end(),
                    [](const Item& one, const Item& other) { return areEqual(one, other); });
}

class Script {
 public:
  Script(const std::uint8_t* data, std::size_t size) : bytes_(data, size) {
    commands_.initTimedCommand(0);
    now_ = bytes_.takeWord();
    isWild_ = bytes_.take() % 4 == 3;
  }

  void run() {
    while (bytes_.left()) {
      const std::uint32_t step = bytes_.take();
      if (step % 4 == 0) {
        cycle();
      } else {
        push(*commands_.actuatorCommands[step / 4 % 2], static_cast<int>(step / 8 % 8));
      }
    }
  }

 private:
  /// Unless the script is wild, all stamps lie so close together that their order is
  /// the plain one.
  std::uint32_t stamp() { return isWild_ ? bytes_.takeWord() : now_ + bytes_.take() * 4 - 100; }

  [[nodiscard]] bool isBefore(const Item& one, const Item& other) const {
    return static_cast<std::int32_t>(one.time - other.time) < 0;
  }

  CommandList takeCommands() {
    CommandList commands;
    const std::uint32_t kind = bytes_.take();
    // Of a long list, the bytes give the first stamp and the distance.
    const std::uint32_t count = kind < 0xF0 ? kind % 8 : (kind - 0xF0) * 40;
    const std::uint32_t first = stamp();
    const std::uint32_t distance = bytes_.take() % 4;
    for (std::uint32_t i = 0; i < count; ++i) {
      const std::uint32_t value = count < 8 ? bytes_.take() : i;
      hal::AttrGeneric record(value == 0xFF ? NAN : static_cast<float>(value) / 50.0F - 2.5F);
      commands.emplace_back(record, count < 8 ? stamp() : first + i * distance, value % 16 == 7);
    }
    return commands;
  }

  /// What a timeline keeps of its items, by the rule of the mode.
  [[nodiscard]] Items kept(const TimedCommand& timeline, const Items& sorted, int mode) const {
    Items items(timeline.commandList.begin(), timeline.commandList.end());
    const auto goes = [&](const Item& item) {
      return mode == TimedCommand::REPLACE ||
             (mode == TimedCommand::CLEAR_AFTER && !sorted.empty() &&
              !isBefore(item, sorted.front())) ||
             (mode == TimedCommand::CLEAR_BEFORE && !sorted.empty() &&
              !isBefore(sorted.back(), item));
    };
    items.erase(std::remove_if(items.begin(), items.end(), goes), items.end());
    return items;
  }

  void push(TimedCommand& timeline, int mode) {
    CommandList commands = takeCommands();
    if (!timeline.commandList.empty() && !commands.empty() && commands.front().ignore) {
      mode = TimedCommand::MERGE;
    }
    const auto inOrder = [this](const Item& one, const Item& other) {
      return isBefore(one, other);
    };
    Items sorted(commands.rbegin(), commands.rend());
    std::stable_sort(sorted.begin(), sorted.end(), inOrder);
    Items expected = kept(timeline, sorted, mode);
    const bool fits = expected.size() + sorted.size() <= TimedCommand::MAX_TIMELINE_ITEMS;
    if (fits) {
      expected.insert(expected.begin(), sorted.begin(), sorted.end());
      std::stable_sort(expected.begin(), expected.end(), inOrder);
    }
    timeline.pushTimedCommand(commands, static_cast<TimedCommand::commandType>(mode));
    require(timeline.commandList.size() <= TimedCommand::MAX_TIMELINE_ITEMS, "not too many items");
    if (isWild_) {
      require(commands.empty() || commands.size() == sorted.size(), "all or nothing is taken");
      return;
    }
    require(areEqual(expected, timeline.commandList), "the items of the timeline");
    require(areEqual(fits ? Items() : sorted, commands), "the list that was handed over");
  }

  void cycle() {
    const std::uint32_t previous = now_;
    now_ = isWild_ ? bytes_.takeWord() : now_ + bytes_.take();
    std::vector<Items> before;
    for (const TimedCommand* timeline : commands_.actuatorCommands) {
      before.emplace_back(timeline->commandList.begin(), timeline->commandList.end());
    }
    commands_.run(now_, previous);
    for (std::size_t i = 0; i < before.size(); ++i) {
      compare(before[i], *commands_.actuatorCommands[i]);
    }
  }

  /// A cycle takes items from the front alone, whose time has come.
  void compare(const Items& before, const TimedCommand& timeline) const {
    const std::size_t left = timeline.commandList.size();
    require(left <= before.size(), "a cycle adds nothing");
    const auto cut = before.end() - static_cast<std::ptrdiff_t>(left);
    require(areEqual(Items(cut, before.end()), timeline.commandList), "what a cycle leaves");
    const auto isAhead = [this](const Item& item) {
      return !item.ignore && timeDifference(now_, item.time) < 0;
    };
    require(std::none_of(before.begin(), cut, isAhead), "what a cycle takes is due");
    const float written = timeline.subDeviceAccessor.getValueFloat();
    if (!before.empty() && timeline.interpolationPossible != 0) {
      require(!(written < -2.0F || written > 2.0F), "the line keeps to the limits");
    }
  }

  Bytes bytes_;
  TimedCommandManager commands_;
  std::uint32_t now_ = 0;
  bool isWild_ = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const simulation::Machine machine("", twoActuators());
  Script(data, size).run();
  return 0;
}
