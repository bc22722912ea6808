#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "host/base/usererror.h"
#include "host/input/machinefile.h"
#include "host/input/motionfile.h"
#include "host/motion/plan.h"
#include "host/motion/rehearsal.h"
#include "host/results/findings.h"
#include "tests/support/refusal.h"
#include "tests/support/temporary.h"

namespace {

std::string joint(const std::string& name, const std::string& type, const std::string& inside) {
  return "  <joint name=\"" + name + "\" type=\"" + type + "\">" + inside + "</joint>\n";
}

const std::string limit = R"(<limit lower="-1" upper="2.5" effort="1" velocity="2"/>)";

std::string robotText(const std::string& joints) {
  return "<?xml version=\"1.0\"?>\n<robot name=\"r\">\n" + joints + "</robot>\n";
}

const std::string fewJoints = robotText(
    joint("a", "revolute", limit) + joint("b", "prismatic", limit) + joint("f", "fixed", "") +
    joint("z", "revolute", "<limit lower='-1' upper='1' velocity='0'/>") +
    joint("t", "revolute", "<mimic joint='a'/>"));

std::string good(const std::string& name) {
  return contentsOf(GOOD_INPUT "/" + name);
}

/// The text so many times; a "#" in it is the number of the time, from 0.
std::string repeated(const std::string& text, int times) {
  const std::size_t mark = std::min(text.find('#'), text.size());
  std::string all;
  for (int i = 0; i < times; ++i) {
    all += text.substr(0, mark);
    all += mark < text.size() ? std::to_string(i) + text.substr(mark + 1) : "";
  }
  return all;
}

const std::string fewActuators = "name: r\nurdf: few.urdf\nactuators: [{name: l, type: 1}]\n";

/// The message of the UserError that `read` throws, less the folder.
template <typename Read>
std::string complaint(const Temporary& temporary, const Read& read) {
  const std::string said = refusal<host::UserError>(read);
  return said == "accepted" ? said : said.substr(temporary.path("").size());
}

/// Runs every text of a file of bad inputs, each behind a line ">>> " with how its message
/// must begin, and a line ">>+ " for each further error.
template <typename Read>
void expectComplaints(const std::string& faults, const std::string& inputName, const Read& read) {
  const Temporary temporary;
  (void)temporary.write("few.urdf", fewJoints);
  std::istringstream cases(contentsOf(BAD_INPUT "/" + faults));
  std::string line;
  int count = 0;
  for (std::getline(cases, line); cases; ++count) {
    std::vector<std::string> expected;
    do {
      expected.push_back(temporary.path(inputName) + ":" + line.substr(4));
    } while (std::getline(cases, line) && line.rfind(">>+ ", 0) == 0);
    std::string text;
    for (; cases && line.rfind(">>> ", 0) != 0; std::getline(cases, line)) {
      text += line + "\n";
    }
    const std::string path = temporary.write(inputName, text);
    std::istringstream said(temporary.path("") + complaint(temporary, [&] { read(path); }));
    for (const std::string& error : expected) {
      std::string shown;
      std::getline(said, shown);
      EXPECT_EQ(shown.rfind(error, 0), 0U) << shown << "\nexpected " << error;
    }
    std::string more;
    EXPECT_FALSE(std::getline(said, more)) << more << "\nbehind " << expected.back();
  }
  EXPECT_GT(count, 10);
}

TEST(Urdf, MakesActuatorsAndSensors) {
  const Temporary temporary;
  const host::MachineModel robot = host::readMachineFile(temporary.write(
      "r.urdf",
      robotText(joint("twin2", "revolute", R"(<mimic joint="twin" multiplier="2" offset="1"/>)") +
                joint("high", "revolute", R"(<limit lower="0.5" upper=" 2 " velocity="3"/>)") +
                joint("wheel", "continuous", "<axis xyz='1 0 0'/>") +
                joint("twin", "prismatic", R"(<mimic joint="high" multiplier="-3" offset="4"/>)") +
                joint("f", "fixed", "") +
                joint("free", "prismatic", R"(<limit upper="1" velocity=" Inf "/>)") +
                "  <transmission><joint name=\"high\"/></transmission>\n")));
  const auto& machine = robot.description;
  ASSERT_EQ(machine.actuators.size(), 3U);
  EXPECT_EQ(machine.actuators[0].name, "high");
  EXPECT_EQ(std::get<float>(machine.actuators[0].value), 0.5F) << "0 lies outside its limits";
  EXPECT_EQ(machine.actuators[0].maximumVelocity, 3.0F);
  EXPECT_TRUE(std::isinf(machine.actuators[1].maximum));
  EXPECT_EQ(machine.actuators[2].minimum, 0.0) << "it is missing";
  EXPECT_TRUE(std::isinf(machine.actuators[2].maximumVelocity));
  ASSERT_EQ(machine.sensors.size(), 5U);
  EXPECT_EQ(machine.sensors[1].name, "wheel/Sensor");
  EXPECT_EQ(machine.sensors[3].name, "twin2/Sensor");
  EXPECT_EQ(machine.sensors[3].actuator, 0);
  EXPECT_EQ(machine.sensors[3].multiplier, -6.0F);
  EXPECT_EQ(machine.sensors[3].offset, 9.0F);
  EXPECT_EQ(robot.uncommandedJoints, (std::set<std::string>{"twin2", "twin", "f"}));
}

TEST(Urdf, SaysWhatIsWrongAndWhere) {
  expectComplaints("urdf.txt", "r.urdf",
                   [](const std::string& path) { host::readMachineFile(path); });
  const Temporary temporary;
  EXPECT_EQ(complaint(temporary, [&] { host::readMachineFile(temporary.path("")); }),
            ": error: cannot be read: Is a directory");
}

TEST(MachineModel, AddsToAUrdf) {
  const Temporary temporary;
  (void)temporary.write("few.urdf",
                        robotText(joint("a", "revolute", limit) + joint("b", "prismatic", "") +
                                  joint("z", "revolute", "<limit lower='3' upper='1'/>") +
                                  joint("t", "revolute", "<mimic joint='a'/>")));
  const host::MachineModel machine =
      host::readMachineFile(temporary.write("m.yaml", good("machine.yaml")));
  const auto& description = machine.description;
  EXPECT_EQ(machine.name, "r") << "the URDF's own";
  EXPECT_EQ(std::get<float>(description.actuators[0].value), -0.5F);
  EXPECT_EQ(std::get<std::int32_t>(description.actuators[3].value), 3);
  EXPECT_EQ(std::get<float>(description.actuators[1].value), 1.0F) << "a limit of its own";
  EXPECT_EQ(description.actuators[1].maximumVelocity, 3.0F);
  EXPECT_EQ(description.actuators[2].minimum, double{0.7F}) << "over the URDF's 3";
  for (const std::size_t stepwise : {3U, 4U, 5U}) {
    EXPECT_FALSE(description.actuators[stepwise].interpolates) << stepwise;
  }
  EXPECT_EQ(description.sensors[0].timeConstant, 0.5);
  EXPECT_EQ(description.sensors[3].timeConstant, 0.25) << "of the mimic joint";
  EXPECT_EQ(description.sensors[4].actuator, 3);
  EXPECT_EQ(std::get<std::string>(description.containers[0].attributes[1].value), ":x");
}

TEST(MachineModel, SaysWhatIsWrongAndWhere) {
  expectComplaints("machine.txt", "m.yaml",
                   [](const std::string& path) { (void)host::readMachineFile(path); });
}

/// Few actuators, in a folder that has their URDF.
struct Few {
  const Temporary temporary;
  const std::string urdf = temporary.write("few.urdf", fewJoints);
  const host::MachineModel machine = host::readMachineFile(temporary.write("r.yaml", fewActuators));

  [[nodiscard]] std::vector<host::CommandBatch> read(const std::string& text) const {
    return host::readMotionFiles({temporary.write("m.yaml", text)}, machine);
  }
};

TEST(JointTrajectory, ReadsBothSpellingsOfTimeAndNumbers) {
  const host::CommandBatch motion = Few().read(good("trajectory.yaml")).front();
  EXPECT_EQ(motion.actuators, (std::vector<int>{1, 0}));
  EXPECT_EQ(motion.times, (std::vector<std::uint32_t>{0, 1000, 1002}));
  std::vector<float> values;
  for (const hal::AttrGeneric& value : motion.values) {
    values.push_back(value.asFloat);
  }
  EXPECT_EQ(values, (std::vector<float>{0.1F, -2.0F, 1e-3F, 0.5F, 3.0F, 4.0F}));
  EXPECT_EQ(motion.notes.size(), 2U) << "the stamp and efforts are ignored";
}

TEST(Lists, ReadMomentsModesAndKeys) {
  const auto batches = Few().read(good("batches.yaml"));
  ASSERT_EQ(batches.size(), 4U);
  EXPECT_EQ(batches[3].mode, TimedCommand::MERGE);
  EXPECT_EQ(batches[3].times, (std::vector<std::uint32_t>{0, 501}));
  EXPECT_EQ(batches[3].size(), 4U) << "the first point is the last one of the round before";
  EXPECT_EQ(batches[3].lastMs(), 1503);
  EXPECT_EQ(batches[0].fromMs, 2000U) << "the hand-over";
  EXPECT_EQ(batches[0].value(0, 0).asInt, -7);
  EXPECT_EQ(batches[1].fromMs, 1500U);
  EXPECT_EQ(batches[1].mode, TimedCommand::CLEAR_BEFORE);
  EXPECT_EQ(batches[1].value(1, 0).asInt, 2) << "of the actuator's own type";
  EXPECT_EQ(batches[1].value(1, 1).asFloat, 1.0F);
}

TEST(MotionFile, IsTheSameInEveryWrapper) {
  const std::string points =
      "points: [{positions: [3, 0.5], velocities: [0, 2], time_from_start: {nsecs: 500000000}}]";
  const std::string trajectory = "{joint_names: [l, a], " + points + "}";
  const std::string motions = "motions: {up: {joints: [l, a], " + points +
                              ", meta: {name: Up}}, down: {joints: [a], positions: [0, 1],"
                              " times_from_start: [1, 2]}}";
  const struct {
    std::string text, pick;
    std::size_t notes;
  } cases[] = {
      {trajectory, "", 0},
      {"{goal_id: {id: x}, goal: {trajectory: " + trajectory + ", path_tolerance: []}}", "", 1},
      {"trajectory: [{joint_trajectory: " + trajectory + ", multi_dof_joint_trajectory: {}}]", "",
       0},
      {motions, ":up", 0},
      {"play_motion: {controllers: [c], " + motions + "}", ":up", 1},
      {"/**: {node: {ros__parameters: {" + motions + "}}}", ":up", 0},
      {"batches: [{at: 0, trajectory: {goal: {trajectory: " + trajectory + "}}}]", "", 0},
      {"batches: [{at: 0, trajectory_file: 'named.yaml:up'}]", "", 0},
      {"{joint_names: [x, l, f, a], points: [{positions: [9, 3, 9, 0.5], velocities: [9, 0, 9, 2], "
       "time_from_start: 0.5}]}",
       "", 1}};
  const Few few;
  const Temporary& temporary = few.temporary;
  const host::MachineModel& machine = few.machine;
  (void)temporary.write("named.yaml", motions);
  for (const auto& tried : cases) {
    const std::string path = temporary.write("m.yaml", tried.text);
    const auto read = host::readMotionFiles({path + tried.pick}, machine, {true});
    ASSERT_EQ(read.size(), 1U) << tried.text;
    EXPECT_EQ(read[0].times, std::vector<std::uint32_t>{500}) << tried.text;
    EXPECT_EQ(read[0].value(0, 0).asInt, 3) << tried.text;
    EXPECT_EQ(read[0].value(0, 1).asFloat, 0.5F) << tried.text;
    EXPECT_EQ(read[0].velocities.at(1), 2.0F) << tried.text;
    EXPECT_EQ(read[0].notes.size(), tried.notes) << tried.text;
  }
  const auto down = host::readMotionFiles({temporary.path("named.yaml:down")}, machine);
  EXPECT_EQ(down[0].value(1, 0).asFloat, 1.0F);
  const std::string whole = temporary.write(
      "named.yaml:up", "joint_names: [b]\n" + std::string("points: [{positions: "
                                                          "[1], time_from_start: 1}]"));
  EXPECT_EQ(host::readMotionFiles({whole}, machine)[0].actuators, std::vector<int>{1});
  EXPECT_EQ(complaint(temporary,
                      [&] { host::readMotionFiles({temporary.path("named.yaml:x")}, machine); }),
            "named.yaml:1:10: error: there is no motion 'x'; known are up, down");
}

TEST(Lists, SayWhatIsWrongAndWhere) {
  const Few few;
  expectComplaints("lists.txt", "m.yaml", [&](const std::string& path) {
    (void)host::readMotionFiles({path}, few.machine);
  });
}

TEST(JointTrajectory, SaysWhatIsWrongAndWhere) {
  const Temporary temporary;
  const auto machine = host::readMachineFile(temporary.write("r.urdf", fewJoints));
  host::Timing timing;
  timing.cycleMs = 200;
  expectComplaints("trajectory.txt", "m.yaml", [&](const std::string& path) {
    (void)host::planRun(machine, host::readMotionFiles({path}, machine), timing);
  });
}

TEST(Input, RefusesShortFilesThatAskForMuch) {
  struct Case {
    std::string text;
    std::uint32_t cycleMs;
    std::string expected;
  };
  const Case cases[] = {
      {"lists: [&l {at: 0, mode: replace, key: a/Value, items: []}" + repeated(", *l", 100'000) +
           "]",
       1, "1:9: error: the file up to here holds more than 100000 lists"},
      {"joint_names: [a, b]\npoints: [&p {}" + repeated(", *p", 1'000'000) + "]", 1,
       "2:9: error: 1000001 points for 2 joints are more than 2000000 commands"},
      {"joint_names: [a]\npoints:\n" + repeated("- {positions: [0], time_from_start: #e-3}\n", 600),
       1000, "3:3: error: 600 points for 'a' within two cycles of 1000 ms, at most 511 fit"}};
  const Few few;
  const Temporary& temporary = few.temporary;
  for (const Case& file : cases) {
    const std::string said = complaint(temporary, [&] {
      (void)host::planRun(few.machine, few.read(file.text), {file.cycleMs, 1000});
    });
    EXPECT_EQ(said.rfind("m.yaml:" + file.expected, 0), 0U) << said;
  }
  const std::pair<std::string, std::string> machines[] = {
      {robotText(repeated(joint("j#", "continuous", ""), 13108)),
       "m.urdf:13110:3: error: the machine up to here has 65539 attributes; at most 65535 are"},
      {"actuators: [{name: a}]\npreferences:\n- &p {owner: a, name: /x, type: 8, value: " +
           std::string(1U << 20U, 'x') + "}\n" + repeated("- *p\n", 31),
       "m.yaml:3:3: error: the machine up to here has 33554528 bytes of names and texts; at most"}};
  for (const auto& [text, expected] : machines) {
    const std::string path = temporary.write(expected.substr(0, 6), text);
    const std::string said = complaint(temporary, [&] { (void)host::readMachineFile(path); });
    EXPECT_EQ(said.rfind(expected, 0), 0U) << said;
  }
}

TEST(Check, SaysWhatIsLateOrBeyondTheLimits) {
  const Few few;
  const auto batches = few.read(good("late.yaml"));
  const host::Plan plan = host::planRun(few.machine, batches, {});
  host::Findings findings(few.machine, plan);
  host::rehearse(few.machine, plan, findings);
  std::string said;
  for (const host::Finding& finding : findings.all()) {
    said += host::shown(finding, "warning").substr(few.temporary.path("m.yaml").size()) + "\n";
  }
  EXPECT_EQ(said,
            ":2:67: warning: a is commanded to -1.5 at 3.000 s, below its minimum -1\n"
            ":2:67: warning: a moves 3 a second to reach -1 at 3.000 s, above its limit 2\n"
            ":3:54: warning: a moves 2.769 a second to reach 1.25 at 2.750 s, above its limit 2\n"
            ":5:3: warning: 1 of 2 points late by 40 ms\n"
            ":6:5: warning: b moves 50.06 a second at 2.000 s, above its limit 2\n");
}

}  // namespace
