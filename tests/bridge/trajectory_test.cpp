// What the bridge makes of messages, whatever they hold.

#include "bridge/trajectory.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "bridge/configuration.h"
#include "bridge/outlet.h"
#include "host/base/values.h"
#include "tests/support/random.h"

namespace {

using host::Json;

constexpr std::int64_t second = 1'000'000'000;

/// At a round second, 2 ms after the cycle at machine time 7,000,123.456 s.
bridge::Arrival arrival() {
  return {1'700'000'000 * second,
          7'000'123'456,
          1'700'000'000 * second - 2'000'000,
          10'000'000,
          60 * second,
          3};
}

/// What it refers to lives as long as it does.
struct Message {
  std::vector<std::vector<double>> numbers;
  std::vector<std::string> names;
  std::vector<char*> pointers;
  std::vector<trajectory_msgs_msg_dds__JointTrajectoryPoint_> points;
  bridge::JointTrajectory message{};

  dds_sequence_double sequence(std::vector<double> values) {
    numbers.push_back(std::move(values));
    const auto size = static_cast<std::uint32_t>(numbers.back().size());
    return {size, size, numbers.back().data(), false};
  }
  const bridge::JointTrajectory& done() {
    for (std::string& name : names) {
      pointers.push_back(name.data());
    }
    message.joint_names_ = {static_cast<std::uint32_t>(names.size()),
                            static_cast<std::uint32_t>(names.size()), pointers.data(), false};
    message.points_._length = static_cast<std::uint32_t>(points.size());
    message.points_._buffer = points.data();
    return message;
  }
};

Message simple(std::int32_t sec, std::uint32_t nanosec) {
  Message made;
  made.names = {"a"};
  made.points.resize(1);
  made.points[0].positions_ = made.sequence({0.5});
  made.points[0].time_from_start_ = {1, 1};
  made.message.header_.stamp_ = {sec, nanosec};
  return made;
}

TEST(Trajectory, BeginsWhenItsStampSays) {
  constexpr std::int32_t now = 1'700'000'000;
  const struct {
    std::int32_t sec;
    std::uint32_t nanosec;
    const char* at;
  } cases[] = {{0, 0, nullptr},
               {now, 0, R"({"sec":7000123,"nanosec":458000000})"},
               {now + 1, 499'999, R"({"sec":7000124,"nanosec":458000000})"},
               {now + 60, 0, R"({"sec":7000183,"nanosec":458000000})"},
               {now + 60, 1, "horizon"},
               {now - 1, 999'999'999, "ago"},
               {std::numeric_limits<std::int32_t>::min(), 0, "ago"},
               {std::numeric_limits<std::int32_t>::max(), 0, "horizon"},
               {now, 1'000'000'000, "nanoseconds"}};
  for (const auto& [sec, nanosec, at] : cases) {
    Message made = simple(sec, nanosec);
    try {
      const Json body = Json::parse(bridge::requestOf(made.done(), arrival()));
      const Json& batch = body["batches"][0];
      EXPECT_EQ(batch.contains("at") ? batch["at"].dump() : "", at == nullptr ? "" : at);
      EXPECT_EQ(batch["trajectory"]["points"][0]["time_from_start"].dump(),
                R"({"sec":1,"nanosec":1})");
    } catch (const bridge::Unfit& why) {
      ASSERT_NE(at, nullptr) << why.what();
      EXPECT_NE(std::string(why.what()).find(at), std::string::npos) << why.what();
    }
  }
}

std::string refusalOf(Message made, const bridge::Arrival& arrival) {
  try {
    bridge::requestOf(made.done(), arrival);
    return "";
  } catch (const bridge::Unfit& why) {
    return why.what();
  }
}

TEST(Trajectory, ReachesAMachineThatStandsStillAsAStopAlone) {
  const struct {
    std::int64_t sinceCycleMs;
    std::int64_t periodMs;
    bool isStanding;
  } cases[] = {
      {200, 10, false}, {201, 10, true}, {201, 1, true}, {201, 100, false}, {1001, 100, true}};
  for (const auto& [sinceCycleMs, periodMs, isStanding] : cases) {
    bridge::Arrival late = arrival();
    late.cycleNs = late.nowNs - sinceCycleMs * 1'000'000;
    late.periodNs = periodMs * 1'000'000;
    EXPECT_EQ(!refusalOf(simple(0, 0), late).empty(), isStanding) << sinceCycleMs;
    Message stop = simple(0, 0);
    stop.points.clear();
    EXPECT_EQ(refusalOf(std::move(stop), late), "");
  }
  bridge::Arrival before = arrival();
  before.cycleNs = 0;
  EXPECT_NE(refusalOf(simple(0, 0), before), "");
}

TEST(Trajectory, IsNoLargerThanAMachineTakes) {
  for (const auto& [points, said] :
       {std::pair{11'000, ""}, {12'000, "bytes as JSON"}, {12'001, "points"}}) {
    Message many = simple(0, 0);
    many.points.assign(static_cast<std::size_t>(points), {});
    const std::string refusal = refusalOf(std::move(many), arrival());
    EXPECT_NE(refusal.find(said), std::string::npos) << points;
    EXPECT_EQ(refusal.empty(), std::string(said).empty()) << refusal;
  }
}

/// All that is in it is finite, and as exact as an actuator holds it.
void expectFaithful(const Json& list, const dds_sequence_double& sent) {
  ASSERT_EQ(list.size(), sent._length);
  for (std::size_t i = 0; i < list.size(); ++i) {
    EXPECT_EQ(list[i].get<float>(), static_cast<float>(sent._buffer[i]));
  }
}

TEST(Trajectory, IsTakenFaithfullyOrRefused) {
  const double odd[] = {0,    -0.0,  0.1, 7,        -3,  1e-300, 16'777'217, 2'147'483'647,
                        4e38, 1e300, NAN, INFINITY, 3e9, -1e-40, 0.5,        -1};
  Random random(1);
  int taken = 0;
  for (int round = 0; round < 5000; ++round) {
    Message made;
    made.numbers.reserve(16);
    made.names.resize(random.below(5), std::string(random.below(40) == 0 ? 300 : 3, '\xff'));
    made.points.resize(random.below(4));
    bool isFinite = true;
    for (auto& point : made.points) {
      for (dds_sequence_double* const field :
           {&point.positions_, &point.velocities_, &point.accelerations_, &point.effort_}) {
        std::vector<double> values(random.below(4));
        for (double& value : values) {
          value = odd[random.below(random.below(8) == 0 ? 16 : 8)];
          isFinite =
              isFinite && (field == &point.effort_ || std::isfinite(static_cast<float>(value)));
        }
        *field = made.sequence(values);
      }
      point.time_from_start_ = {static_cast<std::int32_t>(random.below(0xFFFFFFFFU)),
                                static_cast<std::uint32_t>(random.below(0xFFFFFFFFU))};
    }
    const bridge::JointTrajectory& message = made.done();
    const std::size_t joints = made.names.size();
    const bool isFit = isFinite && joints >= 1 && joints <= 3 && made.names[0].size() == 3;
    try {
      const Json body = Json::parse(bridge::requestOf(message, arrival()));
      EXPECT_TRUE(isFit);
      ++taken;
      const Json& batch = body["batches"][0];
      if (made.points.empty()) {
        EXPECT_EQ(batch["stop"].size(), joints);
        continue;
      }
      EXPECT_EQ(batch["mode"], "replace");
      for (std::size_t i = 0; i < made.points.size(); ++i) {
        expectFaithful(batch["trajectory"]["points"][i]["positions"], made.points[i].positions_);
        expectFaithful(batch["trajectory"]["points"][i]["accelerations"],
                       made.points[i].accelerations_);
      }
    } catch (const bridge::Unfit& why) {
      EXPECT_FALSE(isFit) << why.what();
    }
  }
  EXPECT_GT(taken, 500);
}

TEST(Outlet, DropsWhatNobodyReadsAndSaysHowMuch) {
  constexpr std::uint64_t all = 40'000;
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  static auto* const outlet = new bridge::Outlet(ends[1]);  // as long as the process
  for (std::uint64_t i = 0; i < all; ++i) {
    outlet->add(std::string(99, 'x'));
  }
  EXPECT_FALSE(outlet->finish());
  std::uint64_t read = 0;
  std::uint64_t dropped = 0;
  std::string rest;
  constexpr int patienceMs = 20'000;
  pollfd end{ends[0], POLLIN, 0};
  while (read + dropped < all) {
    ASSERT_EQ(poll(&end, 1, patienceMs), 1) << read << " and " << dropped;
    std::array<char, 4096> chunk{};
    rest.append(chunk.data(),
                static_cast<std::size_t>(::read(ends[0], chunk.data(), chunk.size())));
    while (rest.find('\n') != std::string::npos) {
      if (rest[0] == 'x') {
        ++read;
      } else {
        dropped += std::stoull(rest.substr(std::string("torvex: warning: ").size()));
      }
      rest.erase(0, rest.find('\n') + 1);
    }
  }
  EXPECT_EQ(read + dropped, all);
  EXPECT_GT(dropped, all / 4);
}

TEST(Configuration, NamesTopicsByTheMachine) {
  bridge::Configuration configuration;
  configuration.machines = {"m-1"};
  EXPECT_EQ(bridge::topicOf(configuration, "m-1", "events"), "rt/m_1/events");
  EXPECT_EQ(bridge::topicOf(configuration, "/run/x.y/2.sock", "events"), "rt/_2/events");
  EXPECT_EQ(bridge::topicOf(configuration, "m-1", "robot_description"), "rt/robot_description");
  configuration.machines.emplace_back("n");
  EXPECT_EQ(bridge::topicOf(configuration, "n", "robot_description"), "rt/n/robot_description");
  configuration.topics = {"events=", "joint_states=x/*/*"};
  EXPECT_EQ(bridge::topicOf(configuration, "n", "events"), "");
  EXPECT_EQ(bridge::topicOf(configuration, "n", "joint_states"), "rt/x/n/n");
  EXPECT_THROW(bridge::readConfiguration("{}"), std::runtime_error);
  const struct {
    std::vector<std::string> machines;
    std::vector<std::string> topics;
    const char* said;
  } cases[] = {{{"m-1", "n"}, {"events=", "joint_states=*/x"}, ""},
               {{"m-1", "m_1"}, {}, "joint_states of m-1 and joint_states of m_1"},
               {{"/a/m.sock", "/b/m.sock"}, {}, "joint_states of /a/m.sock and"},
               {{"m"}, {"events=x", "joint_states=x"}, "joint_states of m and events of m"}};
  for (const auto& [machines, topics, said] : cases) {
    const Json json = {
        {"machines", machines}, {"domain", 0},      {"interface", "lo"},   {"rate", 0},
        {"horizon", 1},         {"topics", topics}, {"sensor_data", false}};
    try {
      bridge::readConfiguration(json.dump());
      EXPECT_STREQ(said, "");
    } catch (const std::runtime_error& error) {
      EXPECT_NE(std::string(error.what()).find(said), std::string::npos) << error.what();
    }
  }
}

}  // namespace
