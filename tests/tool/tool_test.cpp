// The tool from end to end, as a user starts it.

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <utility>
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

/// A trajectory of the joint a.
std::string motionOf(const Temporary& temporary, const std::string& points) {
  return temporary.write("m.yaml", "joint_names: [a]\npoints: [" + points + "]\n");
}

/// What a tool said as JSON, before its warnings.
nlohmann::json outcomeOf(const Tool& tool) {
  const std::string& said = tool.said();
  const std::size_t begin = said.find('{');
  return nlohmann::json::parse(said.substr(begin, said.find("\n}\n", begin) + 2 - begin));
}

/// The head of a trace and the numbers of each row.
struct Rows {
  std::string head;
  std::vector<std::vector<double>> rows;

  explicit Rows(const std::string& path) {
    std::istringstream text(contentsOf(path));
    std::getline(text, head);
    for (std::string row; std::getline(text, row);) {
      rows.emplace_back();
      std::istringstream cells(row);
      for (std::string cell; std::getline(cells, cell, ',');) {
        rows.back().push_back(std::stod(cell));
      }
    }
  }
};

/// The trace of a run in simulated time with cycles of a millisecond.
Rows traceOf(const Temporary& temporary, const std::vector<std::string>& inputs) {
  const std::string trace = temporary.path("t.csv");
  std::vector<std::string> arguments = {"run",     "--clock", "simulated", "--cycle",       "1ms",
                                        "--trace", trace,     "--pool",    temporary.pool()};
  arguments.insert(arguments.begin() + 1, inputs.begin(), inputs.end());
  EXPECT_EQ(statusOf(arguments), 0);
  return Rows(trace);
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
  const std::string motion =
      motionOf(temporary,
               "{positions: [0.3], time_from_start: 0}, {positions: [-2.7], time_from_start: 0.9}");
  const std::string trace = temporary.path("t.csv");
  Tool tool({"run", temporary.write("r.urdf", urdf), motion, "--cycle", "1ms", "--json", "--trace",
             trace, "--pool", temporary.pool()});
  ASSERT_EQ(tool.wait(), 0) << tool.said();
  std::vector<double> last;
  for (const std::vector<double>& row : Rows(trace).rows) {
    const double share = std::clamp(row[1] / 900.0, 0.0, 1.0);
    EXPECT_EQ(row[0] - row[1], 659.0);
    const double s = std::min(row[0] / 659.0, 1.0);
    const double approached = 0.3 * s * s * s * (10.0 - 15.0 * s + 6.0 * s * s);
    EXPECT_NEAR(row[2], approached - 3.0 * share, 1e-5) << row[0];
    last = row;
  }
  EXPECT_GE(last[1], 900.0);
  const nlohmann::json outcome = outcomeOf(tool);
  EXPECT_GE(outcome["cycles"].get<int>() + outcome["overruns"].get<int>() +
                outcome["stalled_ms"].get<int>(),
            1559);
  EXPECT_LE(outcome["latency_ns"]["p50"], outcome["latency_ns"]["p99.9"]);
  EXPECT_LE(outcome["cycle_duration_ns"]["p99.9"], outcome["cycle_duration_ns"]["max"]);
  const nlohmann::json& axis = outcome["axes"][0];
  EXPECT_EQ(axis["verdict"], "reached");
  EXPECT_EQ(axis["reached"], 2);
  EXPECT_EQ(axis["command"].get<float>(), -2.7F);
  EXPECT_EQ(static_cast<float>(last[2]), -2.7F);
}

TEST(Tool, RefusesBadInputBeforeAnythingMoves) {
  const Temporary temporary;
  const std::string machine = temporary.write("r.urdf", urdf);
  const std::string motion = motionOf(temporary, "{positions: [1], time_from_start: 1}");
  const std::string wrong = temporary.write("w.yaml", "joint_names: [a, b]\n");
  const std::string none = temporary.path("none");
  const std::string free =
      temporary.write("free.yaml", "actuators: [{name: a}, {name: b, value: 0.7, maximum: 0.7}]\n");
  const std::string huge =
      temporary.write("h.yaml",
                      "joint_names: [a]\npoints:\n- {positions: [0], time_from_start: 0}\n"
                      "- {positions: [3e38], time_from_start: 1}\n");
  std::string items = "{at: 0, mode: merge, key: a/Value, items: [{time: 0, value: 0}";
  for (int i = 1; i < 300; ++i) {
    items += ", {time: " + std::to_string(i) + "e-3, value: 0}";
  }
  const std::string crowd =
      temporary.write("c.yaml", "lists:\n- " + items + "]}\n- " + items + "]}\n");
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{machine, wrong, none},
       wrong + ":1:1: error: the key 'points' is missing\n" + wrong +
           ":1:18: error: machine 'r' has no joint 'b'\n" + none + ": error: cannot be read: No"},
      {{"check", machine, crowd, "--cycle", "1000ms"},
       crowd + ":3:3: error: refused: 600 points for 'a' would be due within two cycles"},
      {{free, huge}, huge + ":4:3: error: 'a' cannot be interpolated between 0 and 3e+38"},
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
      {{machine, motion, "--lead", "x"}, "torvex: error: --approach: 'x' is not"},
      {{machine, motion, "--late", "never"}, "torvex: error: --late: 'never' is neither"},
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
    if (arguments.front() != "check") {
      arguments.insert(arguments.begin(), {"run"});
    }
    if (arguments.size() < 5) {
      arguments.insert(arguments.end(), {"--trace", temporary.path("t.csv")});
    }
    Tool tool(arguments);
    EXPECT_EQ(tool.wait(), 2) << expected;
    EXPECT_EQ(tool.said().rfind(expected, 0), 0U) << tool.said();
  }
  EXPECT_FALSE(temporary.holds("t.csv"));
}

// What the limits change is said by run as check words it, and refused by --strict.
TEST(Tool, SaysWhatTheLimitsChange) {
  struct Case {
    std::string actuator;
    std::string points;
    /// Behind the file; empty when nothing is to be said.
    std::string finding;
    /// The members target, command and verdict of the axis.
    const char* axis;
  };
  const Case cases[] = {
      {"type: 7, minimum: -0.5, maximum: 0.5, maximum_velocity: 1",
       "- {positions: [0.9], time_from_start: 0.1}",
       ":3:3: KIND: a is to be 0.9 at 0.100 s, above its maximum 0.5",
       R"({"target": 0.9, "command": 0.5, "verdict": "limited"})"},
      {"type: 7, maximum_velocity: 1",
       "- {positions: [0], time_from_start: 0}\n- {positions: [5], time_from_start: 0.1}",
       ":4:3: KIND: a moves 50 a second to be 5 at 0.100 s, above its limit 1",
       R"({"target": 5, "command": 5, "verdict": "reached"})"},
      {"type: 7, law: step, maximum: 10", "- {positions: [1e9], time_from_start: 0}",
       ":3:3: KIND: a is to be 1e+09 at 0.000 s, above its maximum 10",
       R"({"target": 1e9, "command": 10, "verdict": "limited"})"},
      {"type: 1", "- {positions: [16777217], time_from_start: 0}", "",
       R"({"target": 16777217, "command": 16777217, "verdict": "reached"})"},
      {"type: 1, maximum: 16777217", "- {positions: [16777218], time_from_start: 0}",
       ":3:3: KIND: a is to be 16777218 at 0.000 s, above its maximum 16777217",
       R"({"target": 16777218, "command": 16777217, "verdict": "limited"})"},
  };
  for (const Case& now : cases) {
    const Temporary temporary;
    const std::string machine =
        temporary.write("r.yaml", "actuators: [{name: a, " + now.actuator + "}]\n");
    const std::string motion =
        temporary.write("m.yaml", "joint_names: [a]\npoints:\n" + now.points + "\n");
    const auto said = [&](const char* kind) {
      std::string line = now.finding.empty() ? "" : motion + now.finding + "\n";
      return line.empty() ? line : line.replace(line.find("KIND"), 4, kind);
    };
    const bool clean = now.finding.empty();
    Tool check({"check", machine, motion});
    EXPECT_EQ(check.wait(), clean ? 0 : 1);
    EXPECT_EQ(check.said().rfind(said("warning"), 0), 0U) << check.said();

    std::vector<std::string> run = {"run",     machine,     motion,   "--pool", temporary.pool(),
                                    "--clock", "simulated", "--trace"};
    run.push_back(temporary.path("s.csv"));
    run.emplace_back("--strict");
    if (!clean) {
      Tool strict(run);
      EXPECT_EQ(strict.wait(), 2);
      EXPECT_EQ(strict.said(), said("error"));
      EXPECT_FALSE(temporary.holds("s.csv"));
    }
    run.back() = "--json";
    if (now.finding.find("a second") != std::string::npos) {
      Tool guarded(run);
      EXPECT_EQ(guarded.wait(), 1);
      EXPECT_EQ(outcomeOf(guarded)["axes"][0]["verdict"], "held") << guarded.said();
      EXPECT_NE(guarded.said().find("the guard brought it to rest"), std::string::npos);
    }
    run.insert(run.end(), {"--guard", "off"});
    Tool json(run);
    ASSERT_EQ(json.wait(), 0) << json.said();
    const nlohmann::json outcome = outcomeOf(json), expected = nlohmann::json::parse(now.axis);
    for (const auto& [member, value] : expected.items()) {
      EXPECT_EQ(outcome["axes"][0][member], value) << member;
    }
    ASSERT_EQ(outcome["warnings"].size(), clean ? 0U : 1U);
    EXPECT_NE(json.said().find(said("warning")), std::string::npos) << json.said();
    const std::string trace = contentsOf(temporary.path("s.csv"));
    const std::string lastCell = trace.substr(trace.rfind(',') + 1);
    EXPECT_EQ(lastCell, expected["command"].dump() + "\n");
  }
}

// Also where a cycle's share of the way is less than the float's last place.
TEST(Tool, FollowsItsLinesWhateverFollowsLater) {
  const Temporary temporary;
  const std::string machine = temporary.write("r.yaml", "actuators: [{name: a, value: 9000}]\n");
  const std::string motion =
      motionOf(temporary,
               "{positions: [9000], time_from_start: 0}, {positions: [9008], time_from_start: 40}");
  const std::string later = temporary.write(
      "l.yaml", "lists: [{at: 0, mode: merge, key: a/Value, items: [{time: 50, value: 9000}]}]\n");
  const auto alone = traceOf(temporary, {machine, motion}).rows;
  const auto followed = traceOf(temporary, {machine, motion, later}).rows;
  ASSERT_GE(alone.size(), 40'000U);
  for (std::size_t i = 0; i < 40'000; ++i) {
    const std::vector<double>& row = alone[i];
    const double line = 9000.0 + 8.0 * std::clamp(row[1] / 40e3, 0.0, 1.0);
    ASSERT_NEAR(row[2], line, 2.0 / 1024.0) << row[1];
    ASSERT_EQ(row[2], followed[i][2]) << row[1];
  }
}

TEST(Tool, TracesTheSensorsOfJointsThatFollowOthers) {
  const Temporary temporary;
  const std::string machine = temporary.write(
      "r.urdf",
      "<robot name='r'><joint name='a' type='revolute'><limit lower='-9' upper='9' velocity='9'/>"
      "</joint><joint name='m' type='revolute'><limit lower='-9' upper='9' velocity='9'/>"
      "<mimic joint='a' multiplier='-2' offset='0.5'/></joint></robot>");
  const Rows trace =
      traceOf(temporary, {machine, motionOf(temporary, "{positions: [1], time_from_start: 1}")});
  EXPECT_EQ(trace.head, "time_ms,motion_ms,a/command,a/measured,m/measured");
  EXPECT_NEAR(trace.rows.back()[4], -1.5, 0.01);
}

TEST(Tool, DrawsWhatItDid) {
  const Temporary temporary;
  const std::string path = temporary.path("p.svg");
  const auto command = simulated(temporary, {"--plot", path});
  setenv("LC_ALL", "C", 1);
  Tool drawing(command);
  ASSERT_EQ(drawing.wait(), 0);
  EXPECT_EQ(drawing.said().find("warning"), std::string::npos) << drawing.said();
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

TEST(Tool, ExportsPreferencesAndReplacesNoInput) {
  const Temporary temporary;
  const std::string machine =
      "actuators: [{name: a}]\ndevices: [{name: D}, {name: E}]\npreferences:\n"
      "- {owner: D, name: /D/0, type: 1, value: 7}\n- {owner: D, name: /D/1, type: 1, value: 9}\n";
  const std::string path = temporary.write("m.yaml", machine), made = temporary.path("made");
  const std::string file = made + "/d.xml";
  const struct {
    std::vector<std::string> arguments;
    int status;
    std::string said;
  } cases[] = {
      {{"D", "d.xml", "--directory", made}, 0, "D: keys exported: 2, to " + file + "\n"},
      {{"E", "e.xml", "--directory", made}, 0, "E has no preferences in use: nothing was written"},
      {{"d", "d.xml"}, 2, ""},
      {{"D", "../d.xml"}, 2, ""},
      {{"D", "x", "--directory", file}, 2, ""},
      {{"D", "m.yaml", "--directory", temporary.path("none/..")}, 2, ""}};
  for (const auto& [arguments, status, said] : cases) {
    std::vector<std::string> command = {"export", path};
    command.insert(command.end(), arguments.begin(), arguments.end());
    Tool tool(command);
    EXPECT_EQ(tool.wait(), status) << tool.said();
    EXPECT_EQ(tool.said().rfind(said, 0), 0U) << tool.said();
  }
  const ZR::ZRValue tree = simulation::readPreferenceFile(file);
  ASSERT_EQ(tree.getSize(), 2);
  EXPECT_EQ(tree[1][0].asString() + " " + tree[1][3].asString(), "Key2 D/1");
  EXPECT_EQ(tree[1][2].asInt(), 9);
  EXPECT_FALSE(temporary.holds("made/e.xml"));
  EXPECT_EQ(contentsOf(path), machine);
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
    tool.readUntil("approach");
    EXPECT_EQ(statusOf(command), 2) << "its pool is taken";
    EXPECT_EQ(statusOf(simulated(another, {})), 0);
    tool.signal(number);
    EXPECT_EQ(tool.wait(), 128 + number) << tool.said();
    EXPECT_EQ(contentsOf(trace).rfind("time_ms,motion_ms,", 0), 0U);
    EXPECT_EQ(contentsOf(trace).back(), '\n');
    EXPECT_FALSE(temporary.poolExists());
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
  run.readUntil("approach");
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
