#include "simulation/machine.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "platform/hal/devicemanager.h"
#include "platform/hal/devicepool.h"
#include "platform/hal/subdevicelist.h"
#include "tests/support/refusal.h"
#include "tests/support/temporary.h"

namespace {

using simulation::Machine;
using simulation::MachineDescription;

/// A device, a container of a kind without keys, an arm, a switch, two sensors.
MachineDescription smallMachine() {
  MachineDescription description;
  description.containers = {
      {"Board", hal::deviceKind, {{"Version", 5, 42}, {"Label", 8, std::string("main")}}},
      {"Group", 7, {{"Size", 6, 2}}}};
  description.actuators = {{"Arm", 0.0F, hal::floatTypeCode, -1.0F, 2.0F, 1.0F, true},
                           {"Switch", 0, 1, 0.0F, 1.0F, 100.0F, false}};
  description.sensors = {{"Arm/Sensor", 0}, {"Twin/Sensor", 0, -2.0F, 0.5F}};
  return description;
}

TEST(Machine, IsFoundThroughTheHal) {
  const Temporary temporary;
  const Machine machine(temporary.pool(), smallMachine());
  hal::DeviceManager& manager = *hal::getDeviceManager();
  std::string subDevices;
  hal::SubDeviceIterator end = hal::SubDeviceList().end();
  for (hal::SubDeviceIterator at = hal::SubDeviceList().find(); !(at == end); at++) {
    subDevices += at->isActuator() ? (at->isInterpolationPossible() ? "linear " : "steps ") : "- ";
  }
  EXPECT_EQ(subDevices, "linear steps - - ");
  EXPECT_STREQ(manager.getNameByAttribute(manager.getAttrWithIndex(12)), "Value");
  EXPECT_EQ(manager.getAttrWithIndex(-1), nullptr);
  EXPECT_EQ(manager.getAttrWithIndex(13), nullptr);
  EXPECT_NE(manager.foundAttributeContainerWithNames("Board"), nullptr);
  EXPECT_NE(manager.foundAttributeContainerWithNames("Arm/Sensor"), nullptr);
  EXPECT_EQ(manager.foundAttributeContainerWithNames("Group"), nullptr);
}

TEST(Machine, LimitsAndCountsWhatOthersDo) {
  const Temporary temporary;
  Machine machine(temporary.pool(), smallMachine());
  const hal::SubDeviceAccessor arm = *hal::SubDeviceList().find();
  EXPECT_EQ(arm.limitMinMaxFloat(2.0F), 2.0F);
  EXPECT_EQ(arm.limitMinMaxFloat(2.5F), 2.0F);
  EXPECT_EQ(arm.limitMinMaxFloat(-7.0F), -1.0F);
  EXPECT_TRUE(std::isnan(arm.limitMinMaxFloat(std::nanf(""))));
  EXPECT_EQ(machine.counters(0).limited, 2U);
  machine.moveFromOutside(0, 9.0F);
  EXPECT_EQ(arm.getValueFloat(), 9.0F);
  EXPECT_EQ(machine.counters(0).movedFromOutside, 1U);
  EXPECT_THROW(machine.moveFromOutside(1, 1.0F), simulation::Error) << "no float";
  EXPECT_THROW(machine.moveFromOutside(2, 1.0F), simulation::Error) << "unknown";
  EXPECT_THROW((void)machine.counters(-1), simulation::Error);
}

TEST(Machine, SensorsLagWithinTheVelocityLimit) {
  const Temporary temporary;
  Machine machine(temporary.pool(), smallMachine());
  const auto measured = [&](int index) { return machine.sensorValue(index).loadFloat(); };
  EXPECT_EQ(measured(1), 0.5F);
  machine.moveFromOutside(0, 1.0F);
  machine.step(0.01);
  EXPECT_FLOAT_EQ(measured(0), 0.01F) << "the lag alone would go 0.39 of the way";
  EXPECT_FLOAT_EQ(measured(1), 0.48F);
  machine.moveFromOutside(0, 0.012F);
  machine.step(0.01);
  EXPECT_FLOAT_EQ(measured(0), 0.01F + 0.002F * (1.0F - std::exp(-0.5F)));
  for (int i = 0; i < 200; ++i) {
    machine.step(0.01);
  }
  EXPECT_EQ(measured(0), 0.012F);
  machine.moveFromOutside(0, std::nanf(""));
  machine.step(0.01);
  EXPECT_EQ(measured(0), 0.012F) << "stays where it is";
}

TEST(Machine, RefusesADescriptionThatIsNotSound) {
  const std::vector<std::pair<const char*, std::function<void(MachineDescription&)>>> faults = {
      {"has an empty name", [](auto& d) { d.actuators[0].name.clear(); }},
      {"are named 'Arm'", [](auto& d) { d.sensors[0].name = "Arm"; }},
      {"does not fit its type code 7", [](auto& d) { d.actuators[0].value = 1; }},
      {"does not fit its type code 8", [](auto& d) { d.containers[0].attributes[1].value = 1.0F; }},
      {"minimum above its maximum", [](auto& d) { d.actuators[0].minimum = 3.0F; }},
      {"unknown actuator 2", [](auto& d) { d.sensors[0].actuator = 2; }},
      {"time constant above 0", [](auto& d) { d.sensors[0].timeConstant = 0.0; }},
      {"is full: 65536 attributes",
       [](auto& d) {
         d.containers[1].attributes.clear();
         for (int i = 0; i < 65524; ++i) {
           d.containers[1].attributes.emplace_back("A" + std::to_string(i), 6, i);
         }
       }},
  };
  const Temporary temporary;
  for (const auto& [expected, spoil] : faults) {
    MachineDescription description = smallMachine();
    spoil(description);
    EXPECT_PRED_FORMAT2(testing::IsSubstring, expected,
                        refusal([&] { const Machine machine(temporary.pool(), description); }));
  }
  EXPECT_FALSE(temporary.poolExists());
  EXPECT_THROW((void)hal::getDevicePool(), simulation::Error);
}

}  // namespace
