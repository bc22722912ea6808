#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "simulation/devicepool/poollayout.h"
#include "simulation/framework/descriptor.h"
#include "simulation/machine.h"
#include "simulation/observer.h"
#include "tests/support/random.h"
#include "tests/support/refusal.h"
#include "tests/support/temporary.h"

namespace {

using simulation::Machine;
using simulation::Observer;
using testing::IsSubstring;

simulation::MachineDescription oneArm() {
  simulation::MachineDescription description;
  description.actuators.emplace_back();
  description.actuators[0].name = "Arm";
  return description;
}

std::string machineRefusal(const std::string& pool) {
  return refusal([&] { const Machine machine(pool, oneArm()); });
}

std::string pathOf(const Temporary& temporary) {
  return simulation::poolPath(temporary.pool());
}

TEST(Pool, BelongsToOneMachineAndReplacesNoForeignFile) {
  const Temporary temporary;
  {
    const Machine machine(temporary.pool(), oneArm());
    EXPECT_FALSE(machine.replacedLeftover());
    EXPECT_PRED_FORMAT2(IsSubstring, "has a simulated machine already",
                        machineRefusal(temporary.pool()));
  }
  EXPECT_FALSE(temporary.poolExists());
  std::ofstream(pathOf(temporary)).flush();
  EXPECT_EQ(machineRefusal(temporary.pool()), "accepted") << "an unfinished one";
  std::ofstream(pathOf(temporary)) << std::string(4096, 'x');
  EXPECT_PRED_FORMAT2(IsSubstring, "is not a device pool", machineRefusal(temporary.pool()));
  EXPECT_TRUE(temporary.poolExists());
  unlink(pathOf(temporary).c_str());
  for (const char* name : {"a/b", "1:", ":a", "-1:a", "99999999999:a", "1:2:a"}) {
    EXPECT_PRED_FORMAT2(IsSubstring, "is not a pool name", machineRefusal(name)) << name;
  }
}

/// A sound pool, to be changed under an observer's eyes.
struct OpenPool {
  explicit OpenPool(const Temporary& temporary) : machine(temporary.pool(), oneArm()) {
    const simulation::Descriptor file(open(pathOf(temporary).c_str(), O_RDWR | O_CLOEXEC));
    record = static_cast<simulation::PoolRecord*>(mmap(nullptr, sizeof(simulation::PoolRecord),
                                                       PROT_READ | PROT_WRITE, MAP_SHARED,
                                                       file.number(), 0));
  }
  ~OpenPool() { munmap(record, sizeof(simulation::PoolRecord)); }
  OpenPool(const OpenPool&) = delete;
  OpenPool& operator=(const OpenPool&) = delete;

  Machine machine;
  simulation::PoolRecord* record;
};

TEST(Observer, ChecksWhatItOpens) {
  const Temporary temporary;
  EXPECT_THROW(Observer{temporary.pool()}, simulation::Error);
  const OpenPool pool(temporary);
  {
    const Observer observer(temporary.pool());
    EXPECT_EQ(observer.containerName(0) + "/" + observer.attributeName(2), "Arm/Maximum");
    EXPECT_THROW((void)observer.value(4), simulation::Error);
    hal::AttrGeneric text;
    text.asTextOffset = pool.record->sizeBytes;
    EXPECT_THROW((void)observer.text(text), simulation::Error);
    pool.record->attributes = nullptr;
    EXPECT_THROW((void)observer.value(0), simulation::Error);
  }
  const auto expectComplaint = [&](auto& field, const char* expected) {
    const auto sound = field;
    field = 99;
    EXPECT_PRED_FORMAT2(IsSubstring, expected,
                        refusal([&] { const Observer observer(temporary.pool()); }));
    field = sound;
  };
  expectComplaint(pool.record->layoutVersion, "has layout version 99");
  expectComplaint(pool.record->sizeBytes, "instead of 99");
  expectComplaint(pool.record->magic, "is not a complete device pool");
}

TEST(Observer, CopiesTheValuesOfOneCycle) {
  const Temporary temporary;
  OpenPool pool(temporary);
  const Observer observer(temporary.pool());
  EXPECT_EQ(observer.copyCycle().number, 0U);
  for (std::uint64_t cycle = 1; cycle < 4; ++cycle) {
    pool.machine.beginCycle();
    pool.machine.moveFromOutside(0, static_cast<float>(cycle));
    EXPECT_EQ(pool.record->sequence, 2 * cycle - 1);
    EXPECT_FALSE(observer.copyCycle().isWhole);
    pool.machine.endCycle(static_cast<std::int64_t>(cycle) * 10);
    EXPECT_EQ(pool.record->sequence, 2 * cycle);
    const simulation::PoolCycle copy = observer.copyCycle();
    EXPECT_TRUE(copy.isWhole);
    EXPECT_EQ(copy.number, cycle);
    EXPECT_EQ(copy.machineTimeMs, static_cast<std::int64_t>(cycle) * 10);
    EXPECT_GT(copy.wallTimeNs, 0);
    ASSERT_EQ(copy.values.size(), 4U);
    EXPECT_EQ(copy.values[0].asFloat, static_cast<float>(cycle));
  }
}

TEST(Value, KeepsTheOtherHalfOfItsRecord) {
  hal::DeviceAttrGeneric attribute;
  attribute.value.asTextOffset = 0x1234567800000000U;
  attribute.storeFloat(1.5F);
  EXPECT_EQ(attribute.value.asTextOffset, 0x123456783FC00000U);
  EXPECT_EQ(attribute.loadFloat(), 1.5F);
}

/// Everything that an observer can be asked.
std::size_t readAll(const std::string& pool) {
  const Observer observer(pool);
  std::size_t bytes = observer.copyCycle().values.size();
  for (int index = 0; index < observer.attributeCount(); ++index) {
    bytes += observer.containerName(index).size() + observer.attributeName(index).size() +
             observer.containerKind(index) + observer.typeCode(index);
    if (observer.typeCode(index) == 8) {
      bytes += observer.text(observer.value(index)).size();
    }
  }
  return bytes;
}

// Words of a sound pool are replaced by what leads astray, the file is cut short, and a pipe
// that nobody writes to lies in its place.
TEST(Observer, SurvivesForgedPools) {
  const Temporary temporary;
  std::string sound;
  {
    simulation::MachineDescription description;
    description.containers = {{"D", hal::deviceKind, {{"Label", 8, std::string("text")}}}};
    for (int i = 0; i < 30; ++i) {
      description.actuators.emplace_back().name = "Arm" + std::to_string(i);
    }
    const Machine machine(temporary.pool(), description);
    sound = contentsOf(pathOf(temporary));
  }
  Random random(14);
  const unsigned long rounds = fromEnvironment("TORVEX_ROUNDS", 100'000);
  std::size_t whole = 0;
  for (unsigned long round = 0; round < rounds; ++round) {
    std::string forged = sound;
    const auto size = static_cast<std::uint32_t>(sound.size());
    for (std::uint32_t changes = random.below(4); changes > 0; --changes) {
      const std::uint64_t words[] = {0, ~std::uint64_t{0}, random.below(size), 65535,
                                     std::uint64_t{1} << random.below(64)};
      const std::size_t length = random.chance(50) ? 8 : 2;
      std::memcpy(&forged[random.below(size / 8 - 1) * 8 + random.below(4) * 2],
                  &words[random.below(5)], length);
    }
    std::ofstream(pathOf(temporary)) << forged;
    whole += refusal([&] { (void)readAll(temporary.pool()); }) == "accepted" ? 1 : 0;
    const std::string cut = refusal([&] {
      const Observer observer(temporary.pool());
      std::filesystem::resize_file(pathOf(temporary), random.below(size));
      (void)observer.containerName(0);
      (void)observer.copyCycle();
    });
    EXPECT_NE(cut, "accepted");
    if (round % 64 == 0) {
      unlink(pathOf(temporary).c_str());
      ASSERT_EQ(mkfifo(pathOf(temporary).c_str(), 0600), 0);
      EXPECT_PRED_FORMAT2(IsSubstring, "is not a device pool",
                          refusal([&] { (void)readAll(temporary.pool()); }));
      unlink(pathOf(temporary).c_str());
    }
  }
  EXPECT_GT(whole, rounds / 10);
  EXPECT_LT(whole, rounds);
  unlink(pathOf(temporary).c_str());
}

TEST(Observer, ReadsNoTextManyTimesOver) {
  const Temporary temporary;
  simulation::MachineDescription description = oneArm();
  auto& attributes = description.containers.emplace_back().attributes;
  description.containers[0].name = "D";
  for (int i = 0; i < 60'000; ++i) {
    attributes.emplace_back("A" + std::to_string(i), 6, i);
  }
  attributes.emplace_back("Long", 8, std::string(4000, 'x'));
  const Machine machine(temporary.pool(), description);
  const Observer observer(temporary.pool());
  EXPECT_PRED_FORMAT2(IsSubstring, "longer than",
                      refusal([&] { (void)observer.text(observer.value(60'000)); }));
}

}  // namespace
