// Names and tables: ns for a look-up, and for each attribute of a table that is
// built.

#include <random>
#include <string>

#include "attrfullname/attrfullname.h"
#include "bench/benchmarks.h"
#include "bench/nodes.h"
#include "bench/stopwatch.h"
#include "platform/hal/devicepool.h"
#include "simulation/machine.h"
#include "timedcommandmanager/timedcommandmanager.h"

namespace bench {

namespace {

using simulation::MachineDescription;

int actuatorsAmong(int attributes) {
  return attributes / 2 / MachineDescription::attributesPerActuator;
}

std::string actuatorName(int actuator) {
  return "Actuator" + std::to_string(actuator);
}

/// One half of the attributes belongs to actuators, the other to one device.
MachineDescription describe(int attributes) {
  MachineDescription description;
  const int actuators = actuatorsAmong(attributes);
  for (int i = 0; i < actuators; ++i) {
    simulation::Actuator actuator;
    actuator.name = actuatorName(i);
    description.actuators.push_back(actuator);
  }
  simulation::Container board;
  board.name = "Board";
  for (int i = actuators * MachineDescription::attributesPerActuator; i < attributes; ++i) {
    board.attributes.emplace_back("Attribute" + std::to_string(i), hal::floatTypeCode, 0.0F);
  }
  description.containers.push_back(board);
  return description;
}

struct Form {
  const char* name;
  const char* prefix;
  const char* attribute;
};

void lookUp(benchmark::State& state, int attributes, Form form) {
  const simulation::Machine machine("", describe(attributes));
  AttrFullName names;
  names.initNameList(0);
  std::mt19937 random(1);
  std::uniform_int_distribution<int> actuator(0, actuatorsAmong(attributes) - 1);
  std::vector<std::string> wanted(256);
  for (std::string& name : wanted) {
    name = form.prefix + actuatorName(actuator(random)) + "/" + form.attribute;
  }
  std::size_t next = 0;
  for ([[maybe_unused]] auto iteration : state) {
    benchmark::DoNotOptimize(names.getAttributeIndexWithName(wanted[next++ % wanted.size()]));
  }
  countItems(state, 1);
}

/// The last tenth of a table is what an extension adds.
int firstNew(int attributes) {
  return attributes - attributes / 10;
}

AttrFullName namesBelow(int end) {
  std::uint16_t& count = hal::getDevicePool()->attributeCount;
  const std::uint16_t whole = count;
  count = static_cast<std::uint16_t>(end);
  AttrFullName names;
  names.initNameList(0);
  count = whole;
  return names;
}

/// Times what is built on copies of a table.
template <typename Table, typename Build>
void timeBuild(benchmark::State& state, const Table& held, const Build& build) {
  Stopwatch watch;
  for ([[maybe_unused]] auto iteration : state) {
    Table table = held;
    watch.start();
    build(table);
    state.SetIterationTime(watch.stop());
  }
}

void buildNames(benchmark::State& state, int attributes, int first) {
  const simulation::Machine machine("", describe(attributes));
  const AttrFullName held = first == 0 ? AttrFullName() : namesBelow(first);
  timeBuild(state, held, [first](AttrFullName& names) { names.initNameList(first); });
  countItems(state, attributes - first);
}

void buildTimelines(benchmark::State& state, int attributes, int first) {
  const simulation::Machine machine("", describe(attributes));
  emptyNodePool();
  TimedCommandManager held;
  held.initTimedCommand(0);
  held.commandTable.resize(static_cast<std::size_t>(first));
  held.actuatorCommands.clear();
  timeBuild(state, held,
            [first](TimedCommandManager& commands) { commands.initTimedCommand(first); });
  countItems(state, attributes - first);
}

void addBuild(const std::string& name, void (*build)(benchmark::State&, int, int), int attributes) {
  const std::string prefix = "build/" + std::to_string(attributes) + "/" + name;
  add(
      prefix + "/full", [=](benchmark::State& state) { build(state, attributes, 0); }, Timer::own);
  add(
      prefix + "/extended",
      [=](benchmark::State& state) { build(state, attributes, firstNew(attributes)); }, Timer::own);
}

}  // namespace

void addNameBenchmarks() {
  for (const int attributes : {100, 10'000, simulation::maxAttributes}) {
    for (const Form form : {Form{"full_key", "Device/SubDeviceList/", "Value"},
                            Form{"bare_name", "", "Value"}, Form{"unknown", "", "Volume"}}) {
      add("look_up/" + std::to_string(attributes) + "/" + form.name,
          [=](benchmark::State& state) { lookUp(state, attributes, form); });
    }
    addBuild("names", buildNames, attributes);
    addBuild("timelines", buildTimelines, attributes);
  }
}

}  // namespace bench
