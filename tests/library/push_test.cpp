#include <gtest/gtest.h>

#include "commandtext.h"
#include "fakeplatform.h"

namespace {

CommandList rising(int count, unsigned int from) {
  CommandList commands;
  for (int i = 0; i < count; ++i) {
    commands.emplace_back(hal::AttrGeneric(), from + static_cast<unsigned int>(i));
  }
  return commands;
}

TimedCommand::commandType mode(int number) {
  return static_cast<TimedCommand::commandType>(number);
}

}  // namespace

TEST(Push, MergesByMode) {
  const struct {
    const char* queued;
    const char* pushed;
    int type;
    const char* result;
  } cases[] = {
      {"10 20 30", "25", 1, "10 20 25 30"},
      {"10 20=1 30", "20=2", 1, "10 20=2 20=1 30"},
      {"", "5=1 5=2 5=3", 1, "5=3 5=2 5=1"},
      {"10 20", "40 5 30", 0, "5 10 20 30 40"},
      {"10 20", "15", -7, "10 15 20"},
      {"10 20", "15", 5, "10 15 20"},
      {"10 20 30", "20=1 40", 3, "10 20=1 40"},
      {"10 20 30", "40 20=1", 3, "10 20=1 40"},
      {"10 20 30", "5 20=1", 4, "5 20=1 30"},
      {"10 20 30", "20=1 5", 4, "5 20=1 30"},
      {"10 20 30", "15", 2, "15"},
      {"10 20 30", "", 2, ""},
      {"10 20 30", "", 3, "10 20 30"},
      {"10 20 30", "", 4, "10 20 30"},
      {"10 20 30", "15! 40", 2, "10 15! 20 30 40"},
      {"10 20 30", "40! 15", 3, "10 15 20 30 40!"},
      {"10 20 30", "40 15!", 2, "15! 40"},
      {"", "20! 10", 2, "10 20!"},
      {"0x7ffffff0", "5", 1, "5 0x7ffffff0"},
      // Neighbours rise, yet the list is not sorted.
      {"", "0=1 0x40000000=1 0x80000000 0xc0000000 0=2 0x40000000=2", 1,
       "0=2 0=1 0x40000000=2 0x40000000=1 0x80000000 0xc0000000"},
  };
  FakePlatform platform;
  for (const auto& c : cases) {
    TimedCommand timeline;
    timeline.commandList = listOf(c.queued);
    CommandList pushed = listOf(c.pushed);
    platform.take();
    timeline.pushTimedCommand(pushed, mode(c.type));
    EXPECT_EQ(textOf(timeline.commandList), c.result) << c.queued << " + " << c.pushed;
    EXPECT_EQ(textOf(pushed), "");
    EXPECT_EQ(platform.take(), "lock, unlock");
  }
}

TEST(Push, RefusesInSilenceWhatDoesNotFit) {
  const struct {
    int queued, pushed, type;
    std::size_t inTimeline, left;
  } cases[] = {
      {500, 12, 1, 500, 12}, {499, 12, 1, 511, 0}, {500, 600, 2, 0, 600},   {500, 511, 2, 511, 0},
      {511, 0, 1, 511, 0},   {0, 512, 1, 0, 512},  {510, 200, 3, 400, 200}, {510, 411, 4, 210, 411},
  };
  FakePlatform platform;
  for (const auto& c : cases) {
    TimedCommand timeline;
    timeline.commandList = rising(c.queued, 1000);
    CommandList pushed = rising(c.pushed, c.type == 4 ? 889 : 1400);
    pushed.reverse();
    timeline.pushTimedCommand(pushed, mode(c.type));
    EXPECT_EQ(timeline.commandList.size(), c.inTimeline) << c.queued << " + " << c.pushed;
    ASSERT_EQ(pushed.size(), c.left) << c.queued << " + " << c.pushed;
    EXPECT_TRUE(pushed.empty() || pushed.front().time < pushed.back().time);
  }
}

TEST(Push, MovesNodesInsteadOfCopies) {
  FakePlatform platform;
  TimedCommand timeline;
  timeline.commandList = listOf("10 30");
  CommandList pushed = listOf("20");
  const TimedCommand::commandItem* const item = &pushed.front();
  timeline.pushTimedCommand(pushed, TimedCommand::MERGE);
  EXPECT_EQ(&*std::next(timeline.commandList.begin()), item);
}

TEST(Push, OfATimelineIntoItselfOnlyTrims) {
  FakePlatform platform;
  const char* const results[] = {"10 20 30", "10 20 30", "", "", ""};
  for (int type = 0; type <= 4; ++type) {
    TimedCommand timeline;
    timeline.commandList = listOf("10 20 30");
    timeline.pushTimedCommand(timeline.commandList, mode(type));
    EXPECT_EQ(textOf(timeline.commandList), results[type]) << type;
  }
}

TEST(Push, ChangesNothingWithoutTheLock) {
  FakePlatform platform;
  TimedCommand timeline;
  timeline.commandList = listOf("10 20");
  CommandList pushed = listOf("30 15");
  platform.failing = "lock";
  EXPECT_THROW(timeline.pushTimedCommand(pushed, TimedCommand::REPLACE), FakeFailure);
  EXPECT_EQ(textOf(timeline.commandList), "10 20");
  EXPECT_EQ(textOf(pushed), "30 15");
}
