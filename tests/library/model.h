#pragma once

#include <cmath>
#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <vector>

#include "timedcommand/timedcommand.h"

/// What the timelines of a machine must do, written for plainness alone: lists are
/// searched, items copied, calls put down as text.
namespace model {

using Item = TimedCommand::commandItem;
using Items = std::list<Item>;

struct Container {
  const char* name = nullptr;
  int first = 0, size = 0;
  bool actuator = false, interpolation = true;
  float command = 0, limit = 1e30F;
};

struct Attribute {
  const char* name = nullptr;
  hal::AttrGeneric value;
  int typeCode = 7;
  bool tracked = false;
};

struct Timeline {
  Items items;
  int attribute = 0, lock = 0;
  Container* container = nullptr;
  bool bound = false, linear = false, firstCommand = true;
  float currentValue = NAN, lastCommandValue = 0;
  std::uint32_t lastCommandTime = 0;
};

class Machine {
 public:
  /// In the order of the walk: by name.
  std::map<std::string, Container> containers;
  std::map<int, Attribute> attributes;
  std::vector<Timeline> table;
  std::vector<int> driven;
  /// The calls on the platform, as the fake one writes them down.
  std::string calls;
  int locks = 0;

  /// Builds a table of `count` timelines whose handles are read again from `start` on.
  void build(int start, int count);
  void cycle(Timeline& timeline, std::uint32_t time, std::uint32_t previous);
  void push(Timeline& timeline, Items& commands, int mode);
  void chooseLaw(Timeline& timeline);
  /// The highest index with such a bare key, or -1.
  int indexOf(const std::string& key);
  void call(const std::string& text) { calls += (calls.empty() ? "" : " ") + text; }

 private:
  void stepLaw(Timeline& timeline, std::uint32_t time);
  void linearLaw(Timeline& timeline, std::uint32_t time, std::uint32_t previous);
  void output(Timeline& timeline);
};

}  // namespace model
