#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "simulation/devicepool/poollayout.h"
#include "simulation/machine.h"
#include "simulation/observer.h"
#include "tests/support/temporary.h"

namespace {

using simulation::Machine;

simulation::MachineDescription oneArm() {
  simulation::MachineDescription description;
  description.actuators.emplace_back();
  description.actuators[0].name = "Arm";
  return description;
}

std::string refusal(const std::string& pool) {
  try {
    const Machine machine(pool, oneArm());
    return "accepted";
  } catch (const simulation::Error& error) {
    return error.what();
  }
}

TEST(Pool, BelongsToOneMachineOfOneProcess) {
  const Temporary temporary;
  {
    const Machine machine(temporary.pool(), oneArm());
    EXPECT_FALSE(machine.replacedLeftover());
    EXPECT_NE(refusal(temporary.pool()).find("has a simulated machine already"), std::string::npos);
  }
  EXPECT_FALSE(temporary.poolExists());
}

TEST(Pool, ReplacesAnUnfinishedSegmentButNoForeignOne) {
  const Temporary temporary;
  const std::string name = "/torvex." + temporary.pool();
  const int descriptor = shm_open(name.c_str(), O_RDWR | O_CREAT, 0600);
  ASSERT_GE(descriptor, 0);
  EXPECT_EQ(refusal(temporary.pool()), "accepted");
  const int foreign = shm_open(name.c_str(), O_RDWR | O_CREAT, 0600);
  const std::string content(4096, 'x');
  ASSERT_EQ(write(foreign, content.data(), content.size()), 4096);
  EXPECT_NE(refusal(temporary.pool()).find("is no device pool"), std::string::npos);
  EXPECT_TRUE(temporary.poolExists());
  shm_unlink(name.c_str());
  close(descriptor);
  close(foreign);
  EXPECT_NE(refusal("a/b").find("is no pool name"), std::string::npos);
}

TEST(Observer, ChecksWhatItOpens) {
  const Temporary temporary;
  EXPECT_THROW(simulation::Observer{temporary.pool()}, simulation::Error);
  const Machine machine(temporary.pool(), oneArm());
  const int descriptor = shm_open(("/torvex." + temporary.pool()).c_str(), O_RDWR, 0600);
  auto* record = static_cast<simulation::PoolRecord*>(mmap(
      nullptr, sizeof(simulation::PoolRecord), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0));
  {
    const simulation::Observer observer(temporary.pool());
    EXPECT_EQ(observer.containerName(0) + "/" + observer.attributeName(2), "Arm/Maximum");
    EXPECT_THROW((void)observer.value(4), simulation::Error);
    hal::AttrGeneric text;
    text.asTextOffset = record->sizeBytes;
    EXPECT_THROW((void)observer.text(text), simulation::Error);
    record->attributes = nullptr;
    EXPECT_THROW((void)observer.value(0), simulation::Error);
  }
  const auto expectComplaint = [&](auto& field, const char* expected) {
    const auto sound = field;
    field = 99;
    try {
      const simulation::Observer observer(temporary.pool());
      ADD_FAILURE() << "accepted: " << expected;
    } catch (const simulation::Error& error) {
      EXPECT_NE(std::string(error.what()).find(expected), std::string::npos) << error.what();
    }
    field = sound;
  };
  expectComplaint(record->layoutVersion, "has layout version 99");
  expectComplaint(record->sizeBytes, "instead of 99");
  expectComplaint(record->magic, "is no complete device pool");
  munmap(record, sizeof(simulation::PoolRecord));
  close(descriptor);
}

}  // namespace
