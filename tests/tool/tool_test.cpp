// The tool from end to end, as a user starts it.

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "simulation/framework.h"
#include "tests/support/temporary.h"
#include "tool.h"

namespace {

const std::string humanoid = EXAMPLES "/humanoid/humanoid.yaml";
const std::string wave = EXAMPLES "/humanoid/wave.yaml";
const std::string greeting = EXAMPLES "/humanoid/greeting.yaml";

int statusOf(const std::vector<std::string>& arguments) {
  Tool tool(arguments);
  const int status = tool.wait();
  EXPECT_GE(status, 0) << tool.said();
  return status;
}

const std::string urdf =
    "<robot name='r'><joint name='a' type='revolute'>"
    "<limit lower='-9' upper='9' velocity='9'/></joint></robot>";

/// The arguments of a run of the example in simulated time, with more options.
std::vector<std::string> simulated(const Temporary& temporary,
                                   const std::vector<std::string>& options) {
  std::vector<std::string> arguments = {"run",     humanoid,    wave,     greeting,
                                        "--clock", "simulated", "--pool", temporary.pool()};
  arguments.insert(arguments.end(), options.begin(), options.end());
  return arguments;
}

/// What a tool said as JSON, behind its warnings.
nlohmann::json outcomeOf(const Tool& tool) {
  return nlohmann::json::parse(tool.said().substr(tool.said().find('{')));
}

TEST(Tool, CommandsTheSameAtEveryTryAndEveryStart) {
  const Temporary temporary;
  const std::string trace = temporary.path("t.csv");
  std::string first;
  for (const char* start : {"0", "0", "0x7FFFF000", "0xFFFFF000"}) {
    Tool tool(simulated(temporary, {"--start", start, "--json", "--trace", trace}));
    ASSERT_EQ(tool.wait(), 0) << tool.said();
    first = first.empty() ? contentsOf(trace) : first;
    EXPECT_EQ(contentsOf(trace), first) << start;
    EXPECT_TRUE(outcomeOf(tool)["latency_ns"].is_null());
    EXPECT_TRUE(outcomeOf(tool)["warnings"].empty()) << "it asks nothing of the machine";
  }
  EXPECT_GT(first.size(), 100000U);
}

TEST(Tool, FollowsTheLineInRealTime) {
  const Temporary temporary;
  const std::string motion = temporary.write("m.yaml",
                                             "joint_names: [a]\npoints:\n"
                                             "- {positions: [0.3], time_from_start: 0}\n"
                                             "- {positions: [-2.7], time_from_start: 0.9}\n");
  const std::string trace = temporary.path("t.csv");
  Tool tool({"run", temporary.write("r.urdf", urdf), motion, "--cycle", "1ms", "--json", "--trace",
             trace, "--pool", temporary.pool()});
  ASSERT_EQ(tool.wait(), 0) << tool.said();
  std::istringstream rows(contentsOf(trace));
  std::string row;
  std::getline(rows, row);
  double time = 0.0;
  float command = 0.0F;
  while (std::getline(rows, row)) {
    ASSERT_EQ(std::sscanf(row.c_str(), "%lf,%f", &time, &command), 2);
    const double share = std::clamp((time - 34.0) / 900.0, 0.0, 1.0);
    EXPECT_NEAR(command, time < 34.0 ? 0.3 * time / 34.0 : 0.3 - 3.0 * share, 1e-5) << time;
  }
  EXPECT_GE(time, 934.0);
  EXPECT_EQ(command, -2.7F);
  const nlohmann::json outcome = outcomeOf(tool);
  EXPECT_GE(outcome["cycles"].get<int>() + outcome["overruns"].get<int>(), 934);
  EXPECT_LE(outcome["latency_ns"]["p50"], outcome["latency_ns"]["p99.9"]);
  EXPECT_LE(outcome["duration_ns"]["p99.9"], outcome["duration_ns"]["max"]);
  EXPECT_EQ(outcome["actuators"][0]["delivered"], outcome["actuators"][0]["sent"]);
  EXPECT_EQ(outcome["actuators"][0]["command"].get<float>(), command);
}

TEST(Tool, RefusesBadInputBeforeAnythingMoves) {
  const Temporary temporary;
  const std::string machine = temporary.write("r.urdf", urdf);
  const std::string motion = temporary.write(
      "m.yaml", "joint_names: [a]\npoints:\n- {positions: [1], time_from_start: 1}\n");
  const std::string wrong = temporary.write("w.yaml", "joint_names: [a, b]\n");
  const std::string none = temporary.path("none");
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{machine, wrong}, wrong + ":1:18: error: machine 'r' has no joint 'b'"},
      {{none, motion}, none + ": error: cannot be read: No such file or directory"},
      {{machine, motion, motion},
       motion + ":1:1: error: 'a' is moved by " + motion + " already; put one of the two into a"},
      {{machine, motion, "--trace", none + "/t.csv"}, none + "/t.csv: error: cannot be written"},
      {{machine, motion, "--plot", none + "/p.svg"}, none + "/p.svg: error: cannot be written"},
      {{machine, motion, "--plot", machine},
       machine + ": error: the picture would replace an input"},
      {{machine}, "torvex: error: MOTION is required"},
      {{machine, motion, "--cycle", "0"}, "torvex: error: --cycle: '0' is not"},
      {{machine, motion, "--cycle", "1.5ms"}, "torvex: error: --cycle: '1.5ms' is not"},
      {{machine, motion, "--start", "4294967296"}, "torvex: error: --start:"},
      {{machine, motion, "--priority", "1"}, "torvex: error: --priority: '1' is not"},
      {{machine, motion, "--priority", "100"}, "torvex: error: --priority: '100' is not"},
      {{machine, motion, "--affinity", "-1"}, "torvex: error: --affinity: '-1' is not"},
      {{machine, motion, "--affinity", "1024"}, "torvex: error: --affinity: '1024' is not"},
      {{machine, motion, "--clock", "sundial"}, "torvex: error: --clock:"},
      {{machine, motion, "--tolerance", "nan"}, "torvex: error: --tolerance:"},
      {{machine, motion, "--pool", "a/b"}, "torvex: error: 'a/b' is no pool name"},
  };
  for (auto [arguments, expected] : cases) {
    arguments.insert(arguments.begin(), {"run"});
    if (arguments.size() < 5) {
      arguments.insert(arguments.end(), {"--trace", temporary.path("t.csv")});
    }
    Tool tool(arguments);
    EXPECT_EQ(tool.wait(), 2) << expected;
    EXPECT_EQ(tool.said().rfind(expected, 0), 0U) << tool.said();
  }
  EXPECT_FALSE(temporary.holds("t.csv") || temporary.holds("t.csv.torvex-part"));
}

TEST(Tool, DrawsWhatItDid) {
  const Temporary temporary;
  const std::string path = temporary.path("p.svg");
  const auto command = simulated(temporary, {"--plot", path});
  ASSERT_EQ(statusOf(command), 0);
  const std::string picture = contentsOf(path);
  EXPECT_EQ(picture.rfind("<?xml", 0), 0U);
  for (const char* text : {">humanoid: wave.yaml, greeting.yaml<", ">right_ankle_roll (limit",
                           ">chest_light<", ">clear_after<", "</svg>"}) {
    EXPECT_NE(picture.find(text), std::string::npos) << text;
  }
  const std::string searched = getenv("PATH");
  setenv("PATH", temporary.path("").c_str(), 1);
  Tool without(command);
  EXPECT_EQ(without.wait(), 2);
  setenv("PATH", searched.c_str(), 1);
  EXPECT_EQ(without.said().rfind(path + ": error: cannot be drawn: gnuplot is not installed", 0),
            0U)
      << without.said();
  EXPECT_EQ(contentsOf(path), picture);
}

TEST(Tool, ChecksWithoutMoving) {
  const Temporary temporary;
  const std::string fast =
      temporary.write("m.yaml",
                      "joint_names: [head_yaw]\npoints:\n- {positions: [0], time_from_start: 0}\n"
                      "- {positions: [1], time_from_start: 0.1}\n");
  EXPECT_EQ(statusOf({"check", humanoid, wave, greeting}), 0);
  EXPECT_EQ(statusOf({"check", humanoid, fast}), 1);
  EXPECT_EQ(statusOf({"check", humanoid, humanoid}), 2);
}

TEST(Tool, ExportsAThousandPreferencesInOrder) {
  const Temporary temporary;
  std::string machine = "actuators: [{name: a}]\ndevices: [{name: D}, {name: E}]\npreferences:\n";
  for (int i = 0; i < 1000; ++i) {
    machine += "- {owner: D, name: /D/" + std::to_string(i) +
               ", type: 1, value: " + std::to_string(7 * i) + "}\n";
  }
  const std::string path = temporary.write("m.yaml", machine), made = temporary.path("made");
  const std::string file = made + "/d.xml";
  Tool tool({"export", path, "D", "d.xml", "--directory", made});
  EXPECT_EQ(tool.wait(), 0);
  EXPECT_EQ(tool.said(), "D: keys exported: 1000, to " + file + "\n");
  const ZR::ZRValue tree = simulation::readPreferenceFile(file);
  ASSERT_EQ(tree.getSize(), 1000);
  for (int i = 0; i < 1000; ++i) {
    EXPECT_EQ(tree[i][0].asString() + " " + tree[i][3].asString(),
              "Key" + std::to_string(i + 1) + " D/" + std::to_string(i));
    EXPECT_EQ(tree[i][2].asInt(), 7 * i);
  }
  Tool nothing({"export", path, "E", "e.xml", "--directory", made});
  EXPECT_EQ(nothing.wait(), 0);
  EXPECT_EQ(nothing.said(), "E has no preferences in use: nothing was written\n");
  EXPECT_FALSE(temporary.holds("made/e.xml"));
  EXPECT_EQ(statusOf({"export", path, "d", "d.xml"}), 2) << "case counts";
  EXPECT_EQ(statusOf({"export", path, "D", "../d.xml"}), 2);
  EXPECT_EQ(statusOf({"export", path, "D", "x", "--directory", file}), 2);
  EXPECT_EQ(statusOf({"export", path, "D", "m.yaml", "--directory", temporary.path("none/..")}), 2);
  EXPECT_EQ(contentsOf(path), machine) << "no output replaces an input";
}

TEST(Tool, ExportsTheLivePoolAtTheEndOfARun) {
  const Temporary temporary;
  auto command = simulated(temporary, {"--directory", temporary.path(""), "--export",
                                       "MainBoard=board.xml", "--export", "head_yaw=head.xml"});
  ASSERT_EQ(statusOf(command), 0);
  const std::string file = temporary.path("board.xml");
  const ZR::ZRValue board = simulation::readPreferenceFile(file);
  ASSERT_EQ(board.getSize(), 4);
  EXPECT_EQ(board[0][2].asInt(), 70);
  EXPECT_EQ(board[1][2].asFloat(), 0.8F);
  EXPECT_EQ(board[2][2].asString(), "en");
  EXPECT_EQ(board[3][2].asString(), "Hello, <you> & \"others\"");
  EXPECT_EQ(simulation::readPreferenceFile(temporary.path("head.xml"))[0][2].asFloat(), 0.0125F);
  for (const auto& [wrong, expected] :
       {std::pair<const char*, std::string>{"nobody=head.xml",
                                            "torvex: error: machine 'humanoid' has no device"},
        {"head_yaw=board.xml",
         file + ": error: the preference file of head_yaw would replace the"}}) {
    command.back() = wrong;
    Tool refused(command);
    EXPECT_EQ(refused.wait(), 2);
    EXPECT_EQ(refused.said().rfind(expected, 0), 0U) << refused.said();
  }
}

TEST(Tool, StopsWhereItIsWhenAsked) {
  const Temporary temporary, another;
  const std::string trace = temporary.path("t.csv");
  const std::vector<std::string> command = {"run",     humanoid, wave,     greeting,
                                            "--trace", trace,    "--pool", temporary.pool()};
  for (const int number : {SIGINT, SIGTERM}) {
    Tool tool(command);
    tool.readUntil("lead");
    EXPECT_EQ(statusOf(command), 2) << "its pool is taken";
    EXPECT_EQ(statusOf(simulated(another, {})), 0);
    tool.signal(number);
    EXPECT_EQ(tool.wait(), 128 + number) << tool.said();
    EXPECT_EQ(contentsOf(trace).rfind("time_ms,", 0), 0U);
    EXPECT_EQ(contentsOf(trace).back(), '\n');
    EXPECT_FALSE(temporary.poolExists() || temporary.holds("t.csv.torvex-part"));
  }
}

TEST(Tool, ListsWhatTheLibrarySees) {
  Tool tool({"list", humanoid, "--json"});
  ASSERT_EQ(tool.wait(), 0) << tool.said();
  const auto attributes = nlohmann::json::parse(tool.said());
  EXPECT_EQ(attributes.at(9), nlohmann::json::parse(R"({"index": 9, "type": 7, "meaning": "float",
      "key": "Device/SubDeviceList/torso_pitch/Value", "container": "sub-device", "actuator": true,
      "law": "linear", "minimum": -0.35, "maximum": 0.75, "maximum_velocity": 2.0})"));
  EXPECT_EQ(attributes.at(0).at("key"), "Device/DeviceList/MainBoard/Version");
  EXPECT_EQ(attributes.at(113).at("law"), "step");
  EXPECT_TRUE(attributes.at(113).at("maximum_velocity").is_null());
}

TEST(Tool, WatchesARunningMachineUntilItEnds) {
  const Temporary temporary;
  Tool run({"run", humanoid, wave, "--pool", temporary.pool()});
  run.readUntil("lead");
  const std::string key = "Device/SubDeviceList/torso_yaw/Value";
  EXPECT_EQ(statusOf({"watch", "nope/Value", "--pool", temporary.pool()}), 2);
  Tool watch({"watch", "torso_yaw/Value", "--json", "--pool", temporary.pool()});
  std::set<float> seen;
  for (std::string line = watch.line(); !line.empty() && seen.size() < 3; line = watch.line()) {
    seen.insert(nlohmann::json::parse(line)["values"][key].get<float>());
  }
  run.signal(SIGTERM);
  EXPECT_EQ(run.wait(), 143);
  EXPECT_EQ(watch.wait(), 0) << watch.said();
  EXPECT_EQ(seen.size(), 3U);
  EXPECT_EQ(statusOf({"watch", "--pool", temporary.pool()}), 2);
}

}  // namespace
