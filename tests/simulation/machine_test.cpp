#include "simulation/machine.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "platform/hal/devicemanager.h"
#include "platform/hal/devicepool.h"
#include "platform/hal/subdevicelist.h"
#include "platform/zr/zrcriticalsectionwrite.h"
#include "tests/support/bits.h"
#include "tests/support/temporary.h"

namespace {

using simulation::Machine;
using simulation::MachineDescription;

simulation::Actuator actuator(const std::string& name, float minimum, float maximum,
                              float velocity) {
  simulation::Actuator described;
  described.name = name;
  described.minimum = minimum;
  described.maximum = maximum;
  described.maximumVelocity = velocity;
  return described;
}

simulation::Sensor sensor(const std::string& name, int followed) {
  simulation::Sensor described;
  described.name = name;
  described.actuator = followed;
  return described;
}

/// A device, a container of a kind without keys, an arm, a switch, two sensors.
MachineDescription smallMachine() {
  MachineDescription description;
  description.containers.push_back(
      {"Board", hal::deviceKind, {{"Version", 5, 42}, {"Label", 8, std::string("main")}}});
  description.containers.push_back({"Group", 7, {{"Size", 6, 2}}});
  description.actuators.push_back(actuator("Arm", -1.0F, 2.0F, 1.0F));
  description.actuators.push_back(actuator("Switch", 0.0F, 1.0F, 100.0F));
  description.actuators.back().typeCode = 1;
  description.actuators.back().value = 0;
  description.actuators.back().interpolates = false;
  description.sensors.push_back(sensor("Arm/Sensor", 0));
  description.sensors.push_back(sensor("Twin/Sensor", 0));
  description.sensors.back().multiplier = -2.0F;
  description.sensors.back().offset = 0.5F;
  return description;
}

TEST(Machine, IsFoundThroughTheHal) {
  const Temporary temporary;
  const Machine machine(temporary.pool(), smallMachine());
  hal::DeviceManager& manager = *hal::getDeviceManager();
  const struct {
    const char* container;
    const char* attribute;
    int kind;
    int typeCode;
    int position;
  } expected[] = {{"Board", "Version", 1, 5, 0},
                  {"Board", "Label", 1, 8, 1},
                  {"Group", "Size", 7, 6, 0},
                  {"Arm", "Value", 0, 7, 0},
                  {"Arm", "Minimum", 0, 7, 1},
                  {"Arm", "Maximum", 0, 7, 2},
                  {"Arm", "MaximumVelocity", 0, 7, 3},
                  {"Switch", "Value", 0, 1, 0},
                  {"Switch", "Minimum", 0, 7, 1},
                  {"Switch", "Maximum", 0, 7, 2},
                  {"Switch", "MaximumVelocity", 0, 7, 3},
                  {"Arm/Sensor", "Value", 0, 7, 0},
                  {"Twin/Sensor", "Value", 0, 7, 0}};
  ASSERT_EQ(hal::getDevicePool()->attributeCount, std::size(expected));
  for (int index = 0; index < static_cast<int>(std::size(expected)); ++index) {
    const auto& attribute = expected[index];
    int position = -1;
    hal::AttributeContainer* container = manager.getAttributeContainerWithIndex(index, position);
    ASSERT_NE(container, nullptr);
    EXPECT_STREQ(container->name.get(), attribute.container);
    EXPECT_EQ(container->kind, attribute.kind);
    EXPECT_EQ(position, attribute.position);
    hal::DeviceAttrGeneric* found = manager.getAttrWithIndex(index);
    EXPECT_STREQ(manager.getNameByAttribute(found), attribute.attribute);
    EXPECT_EQ(found->typeCode, attribute.typeCode);
  }
  EXPECT_EQ(manager.getAttrWithIndex(-1), nullptr);
  EXPECT_EQ(manager.getAttrWithIndex(static_cast<int>(std::size(expected))), nullptr);
  EXPECT_NE(manager.foundAttributeContainerWithNames("Board"), nullptr);
  EXPECT_NE(manager.foundAttributeContainerWithNames("Arm/Sensor"), nullptr);
  EXPECT_EQ(manager.foundAttributeContainerWithNames("Group"), nullptr);
}

TEST(Machine, ListsItsSubDevicesInOrder) {
  const Temporary temporary;
  const Machine machine(temporary.pool(), smallMachine());
  hal::SubDeviceList subDevices;
  hal::SubDeviceIterator end = subDevices.end();
  std::vector<std::string> seen;
  for (hal::SubDeviceIterator at = subDevices.find(); !(at == end); at++) {
    const bool interpolates = at->isActuator() && at->isInterpolationPossible();
    seen.push_back(std::string(at->getName()) + (at->isActuator() ? " actuator" : " sensor") +
                   (interpolates ? " linear " : " ") + std::to_string(at->getFirstAttrIndex()) +
                   "-" + std::to_string(at->getLastAttrIndex()));
  }
  EXPECT_EQ(seen,
            (std::vector<std::string>{"Arm actuator linear 3-6", "Switch actuator 7-10",
                                      "Arm/Sensor sensor 11-11", "Twin/Sensor sensor 12-12"}));
}

TEST(Machine, ReadsBackEveryBitThatWasWritten) {
  const Temporary temporary;
  const Machine machine(temporary.pool(), smallMachine());
  hal::SubDeviceAccessor arm = *hal::SubDeviceList().find();
  for (const std::uint32_t bits :
       {0x80000000U, 0x00000001U, 0x7FC12345U, 0x7F800000U, 0x3DCCCCCDU}) {
    float written = 0.0F;
    std::memcpy(&written, &bits, sizeof bits);
    arm.setValueFloat(written);
    EXPECT_EQ(bitsOf(arm.getValueFloat()), bits);
  }
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

TEST(Machine, TracksChangesOfAttributesThatAskForIt) {
  const Temporary temporary;
  MachineDescription description = smallMachine();
  description.containers[0].attributes[0].tracksChanges = true;
  const Machine machine(temporary.pool(), description);
  for (int index = 0; index < 2; ++index) {
    hal::DeviceAttrGeneric& attribute = *hal::getDeviceManager()->getAttrWithIndex(index);
    attribute.set(hal::AttrGeneric(1.0F));
    EXPECT_EQ(attribute.changeCount, index == 0 ? 1 : 0);
  }
}

TEST(Machine, RefusesADescriptionThatIsNotSound) {
  const std::vector<std::pair<const char*, std::function<void(MachineDescription&)>>> faults = {
      {"has an empty name", [](auto& d) { d.actuators[0].name.clear(); }},
      {"has an empty name", [](auto& d) { d.containers[0].attributes[0].name.clear(); }},
      {"are named 'Arm'", [](auto& d) { d.sensors[0].name = "Arm"; }},
      {"are named 'Board'", [](auto& d) { d.containers.push_back(d.containers[0]); }},
      {"stands twice", [](auto& d) { d.containers[0].attributes[1].name = "Version"; }},
      {"does not fit its type code 7", [](auto& d) { d.actuators[0].value = 1; }},
      {"does not fit its type code 8", [](auto& d) { d.containers[0].attributes[1].value = 1.0F; }},
      {"does not fit its type code 0", [](auto& d) { d.containers[0].attributes[1].typeCode = 0; }},
      {"minimum above its maximum", [](auto& d) { d.actuators[0].minimum = 3.0F; }},
      {"negative maximum velocity", [](auto& d) { d.actuators[0].maximumVelocity = -1.0F; }},
      {"unknown actuator 2", [](auto& d) { d.sensors[0].actuator = 2; }},
      {"time constant above 0", [](auto& d) { d.sensors[0].timeConstant = 0.0; }},
      {"describe it as an actuator", [](auto& d) { d.containers[0].kind = hal::subDeviceKind; }},
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
    try {
      const Machine machine(temporary.pool(), description);
      ADD_FAILURE() << "accepted: " << expected;
    } catch (const simulation::Error& error) {
      EXPECT_NE(std::string(error.what()).find(expected), std::string::npos) << error.what();
    }
  }
  EXPECT_FALSE(temporary.poolExists());
  EXPECT_THROW((void)hal::getDevicePool(), simulation::Error);
}

TEST(Machine, HoldsAsManyAttributesAsIndexesCanName) {
  const Temporary temporary;
  MachineDescription description = smallMachine();
  for (int i = 0; i < simulation::maxAttributes - 13; ++i) {
    description.containers[1].attributes.emplace_back("A" + std::to_string(i), 6, i);
  }
  const Machine machine(temporary.pool(), description);
  EXPECT_EQ(hal::getDevicePool()->attributeCount, 65535);
  EXPECT_STREQ(hal::getDeviceManager()->getAttrWithIndex(65534)->name.get(), "Value");
}

TEST(Lock, LetsOneSectionInAtATime) {
  const boost::shared_ptr<ZR::ZRMutexRW> mutex = ZR::ZRMutexRW::createZRMutexRW();
  long counter = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int turn = 0; turn < 20000; ++turn) {
        const ZR::ZRCriticalSectionWrite section(mutex);
        ++counter;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(counter, 80000);
}

}  // namespace
