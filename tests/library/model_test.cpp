// Random operations on a machine's table of timelines, and on copies beside it,
// compared after every step with a model. Flags: --seed=N --steps=N

#include <gtest/gtest.h>

#include <cstdio>
#include <random>

#include "modelworld.h"

namespace {

unsigned int seed = 1, steps = 20000;
constexpr unsigned int sequenceLength = 200;

}  // namespace

TEST(Timelines, BehaveAsTheModel) {
  for (unsigned int step = 0; step < steps; ++seed) {
    std::mt19937 random(seed);
    model::World world(
        [&](std::uint32_t below) { return static_cast<std::uint32_t>(random()) % below; });
    for (const unsigned int end = step + sequenceLength; step < end; ++step) {
      ASSERT_EQ(world.step(), "") << "--seed=" << seed << " --steps=1";
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
