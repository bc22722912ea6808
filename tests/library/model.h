#pragma once

#include <cmath>
#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <vector>

#include "fakeplatform.h"
#include "timedcommand/timedcommand.h"

/// What the timelines of a machine must do, written for plainness alone: lists are
/// searched, items copied, calls put down as text.
namespace model {

using Item = TimedCommand::commandItem;
using Items = std::list<Item>;

struct Timeline {
  Items items;
  int attribute = 0, lock = 0;
  FakeContainer* container = nullptr;
  bool bound = false, linear = false, firstCommand = true;
  float currentValue = NAN, lastCommandValue = 0;
  std::uint32_t lastCommandTime = 0;
};

class Machine {
 public:
  /// Looks at the platform for what the machine is like, never for its values.
  explicit Machine(FakePlatform& platform) : platform_(platform) {}

  std::map<FakeContainer*, float> registers;
  std::map<int, hal::AttrGeneric> values;
  std::vector<Timeline> table;
  std::vector<int> driven;
  /// The calls on the platform, as the fake one writes them down.
  std::string calls;
  int locks = 0;

  /// Builds the table, whose handles are read again from `start` on.
  void build(int start);
  void cycle(Timeline& timeline, std::uint32_t time, std::uint32_t previous);
  void push(Timeline& timeline, Items& commands, int mode);
  void chooseLaw(Timeline& timeline);
  void call(const std::string& text) { calls += (calls.empty() ? "" : " ") + text; }

 private:
  void stepLaw(Timeline& timeline, std::uint32_t time);
  void linearLaw(Timeline& timeline, std::uint32_t time, std::uint32_t previous);
  void output(Timeline& timeline);

  FakePlatform& platform_;
};

}  // namespace model
