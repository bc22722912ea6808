// Random operations on a machine's table of timelines, and on copies beside it,
// compared after every step with a model. Flags: --seed=N --steps=N

#include <gtest/gtest.h>

#include <cstdio>
#include <random>

#include "modelworld.h"

namespace {

unsigned int seed = 1, steps = 20000;
constexpr unsigned int sequenceLength = 200;

/// What was drawn for one operation. Beyond its end all numbers are 0.
using Draws = std::vector<std::uint32_t>;
/// What was drawn for the world, and for each operation.
using Sequence = std::vector<Draws>;

/// Plays a sequence in a new world. The result says what differs and cuts off what
/// comes after; it is empty when nothing does.
std::string play(Sequence& sequence) {
  std::size_t at = 0, next = 0;
  model::World world([&](std::uint32_t below) {
    return (next < sequence[at].size() ? sequence[at][next++] : 0) % below;
  });
  for (at = 1; at < sequence.size(); ++at) {
    next = 0;
    if (std::string difference = world.step(); !difference.empty()) {
      sequence.resize(at + 1);
      return difference;
    }
  }
  return "";
}

/// Keeps the change of a sequence when it still differs.
void tryInstead(Sequence& sequence, Sequence changed) {
  if (!play(changed).empty()) {
    sequence = std::move(changed);
  }
}

/// Leaves out runs of operations, single ones, and then what was drawn last for each.
void shrink(Sequence& sequence) {
  for (std::size_t run = sequence.size() / 2; run > 0; run /= 2) {
    for (std::size_t begin = sequence.size(); begin-- > 1;) {
      Sequence fewer(sequence.begin(), sequence.begin() + static_cast<std::ptrdiff_t>(begin));
      for (std::size_t i = begin + run; i < sequence.size(); ++i) {
        fewer.push_back(sequence[i]);
      }
      tryInstead(sequence, std::move(fewer));
      begin = std::min(begin, sequence.size());
    }
  }
  for (std::size_t i = 1; i < sequence.size(); ++i) {
    for (std::size_t length = 0; i < sequence.size() && length < sequence[i].size(); ++length) {
      Sequence shorter = sequence;
      shorter[i].resize(length);
      tryInstead(sequence, std::move(shorter));
    }
  }
}

}  // namespace

TEST(Timelines, BehaveAsTheModel) {
  for (unsigned int step = 0; step < steps; step += sequenceLength, ++seed) {
    std::mt19937 random(seed);
    Sequence sequence(1);
    model::World world([&](std::uint32_t below) {
      return (sequence.back().emplace_back(static_cast<std::uint32_t>(random()))) % below;
    });
    while (sequence.size() <= sequenceLength) {
      sequence.emplace_back();
      if (!world.step().empty()) {
        shrink(sequence);
        FAIL() << play(sequence) << "found with --seed=" << seed << " --steps=1";
      }
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
