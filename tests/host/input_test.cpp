#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "host/input/jointtrajectory.h"
#include "host/input/source.h"
#include "host/input/urdf.h"
#include "host/schedule.h"
#include "tests/support/temporary.h"

namespace {

std::string joint(const std::string& name, const std::string& type, const std::string& inside) {
  return "  <joint name=\"" + name + "\" type=\"" + type + "\">" + inside + "</joint>\n";
}

const std::string limit = R"(<limit lower="-1" upper="2.5" effort="1" velocity="2"/>)";

std::string robotText(const std::string& joints) {
  return "<?xml version=\"1.0\"?>\n<robot name=\"r\">\n" + joints + "</robot>\n";
}

const std::string twoJoints = robotText(joint("a", "revolute", limit) +
                                        joint("b", "prismatic", limit) + joint("f", "fixed", ""));

/// The message of the InputError that `read` throws, less the folder.
template <typename Read>
std::string complaint(const Temporary& temporary, const Read& read) {
  try {
    read();
    return "accepted";
  } catch (const host::InputError& error) {
    return std::string(error.what()).substr(temporary.path("").size());
  }
}

TEST(Urdf, MakesActuatorsAndSensors) {
  const Temporary temporary;
  const host::Robot robot = host::readUrdf(temporary.write(
      "r.urdf",
      robotText(joint("twin2", "revolute", R"(<mimic joint="twin" multiplier="2" offset="1"/>)") +
                joint("high", "revolute", R"(<limit lower="0.5" upper=" 2 " velocity="3"/>)") +
                joint("wheel", "continuous", "<axis xyz='1 0 0'/>") +
                joint("twin", "prismatic", R"(<mimic joint="high" multiplier="-3" offset="4"/>)") +
                joint("f", "fixed", "") +
                "  <transmission><joint name=\"high\"/></transmission>\n")));
  const auto& machine = robot.machine;
  ASSERT_EQ(machine.actuators.size(), 2U);
  EXPECT_EQ(machine.actuators[0].name, "high");
  EXPECT_EQ(std::get<float>(machine.actuators[0].value), 0.5F) << "0 lies outside its limits";
  EXPECT_EQ(machine.actuators[0].maximumVelocity, 3.0F);
  EXPECT_TRUE(std::isinf(machine.actuators[1].maximum));
  ASSERT_EQ(machine.sensors.size(), 4U);
  EXPECT_EQ(machine.sensors[1].name, "wheel/Sensor");
  EXPECT_EQ(machine.sensors[2].name, "twin2/Sensor");
  EXPECT_EQ(machine.sensors[2].actuator, 0);
  EXPECT_EQ(machine.sensors[2].multiplier, -6.0F);
  EXPECT_EQ(machine.sensors[2].offset, 9.0F);
  EXPECT_EQ(robot.uncommandedJoints, (std::set<std::string>{"twin2", "twin", "f"}));
}

TEST(Urdf, SaysWhatIsWrongAndWhere) {
  const Temporary temporary;
  std::string deep = "<robot>";
  for (int i = 0; i < 200; ++i) {
    deep += "<a>";
  }
  for (int i = 0; i < 200; ++i) {
    deep += "</a>";
  }
  const struct {
    std::string text;
    const char* expected;
  } faults[] = {
      {"", "r.urdf:1:1: error: not well-formed XML"},
      {"<robot>\n  <joint", "r.urdf:2:8: error: not well-formed XML"},
      {"<machine/>", "r.urdf:1:1: error: the root element is <machine> instead of <robot>"},
      {robotText(""), "r.urdf:2:1: error: the robot has no movable joint"},
      {robotText(joint("", "revolute", limit)), "r.urdf:3:3: error: a joint needs a name"},
      {robotText(joint("a", "revolute", limit) + joint("a", "fixed", "")),
       "r.urdf:4:3: error: a second joint or sensor is named 'a'"},
      {robotText(joint("a", "hinge", limit)), "r.urdf:3:3: error: joint 'a' has the type 'hinge'"},
      {robotText(joint("a", "revolute", "")), "r.urdf:3:3: error: joint 'a' needs a <limit>"},
      {robotText(joint("a", "revolute", "<limit lower='0' upper='1'/>")),
       "r.urdf:3:35: error: the limit of joint 'a' needs a velocity"},
      {robotText(joint("a", "revolute", "<limit lower='2' upper='1' velocity='1'/>")),
       "r.urdf:3:35: error: joint 'a' has its lower limit above"},
      {robotText(joint("a", "revolute", "<limit lower='nan' upper='1' velocity='1'/>")),
       "r.urdf:3:35: error: lower=\"nan\" is not a finite decimal number"},
      {robotText(joint("a", "revolute", "<limit lower='0' upper='1e99' velocity='1'/>")),
       "r.urdf:3:35: error: upper=\"1e99\" is not a finite decimal number"},
      {robotText(joint("a", "revolute", "<limit velocity='-1'/>")),
       "r.urdf:3:35: error: joint 'a' has a negative velocity limit"},
      {robotText(joint("a", "revolute", limit) + joint("m", "revolute", "<mimic joint='x'/>")),
       "r.urdf:4:3: error: joint 'm' mimics 'x', which is no movable joint"},
      {robotText(joint("a", "revolute", limit) + joint("m", "revolute", "<mimic joint='n'/>") +
                 joint("n", "revolute", "<mimic joint='m'/>")),
       "r.urdf:4:3: error: joint 'm' mimics itself"},
      {robotText(joint("a", "revolute", limit) + joint("a/Sensor", "revolute", limit)),
       "r.urdf:4:3: error: a second joint or sensor is named 'a/Sensor'"},
      {deep + "</robot>", "r.urdf:1:305: error: elements lie more than 100 deep"},
  };
  for (const auto& fault : faults) {
    const std::string path = temporary.write("r.urdf", fault.text);
    const std::string said = complaint(temporary, [&] { host::readUrdf(path); });
    EXPECT_EQ(said.rfind(fault.expected, 0), 0U) << said << "\nexpected " << fault.expected;
  }
  EXPECT_EQ(complaint(temporary, [&] { host::readUrdf(temporary.path("none")); }),
            "none: error: cannot be read: No such file or directory");
  EXPECT_EQ(complaint(temporary, [&] { host::readUrdf(temporary.path("")); }),
            ": error: cannot be read: Is a directory");
}

TEST(Urdf, CountsAttributesWhileItReads) {
  const Temporary temporary;
  std::string joints;
  for (int i = 0; i < 13108; ++i) {
    joints += joint("j" + std::to_string(i), "continuous", "");
  }
  const std::string path = temporary.write("r.urdf", robotText(joints));
  EXPECT_EQ(complaint(temporary, [&] { host::readUrdf(path); }),
            "r.urdf:13110:3: error: the joints up to here need 65540 attributes; a device pool "
            "holds 65535");
}

host::Motion readMotion(const Temporary& temporary, const std::string& text) {
  const host::Robot robot = host::readUrdf(temporary.write("r.urdf", twoJoints));
  return host::readJointTrajectory(temporary.write("m.yaml", text), robot);
}

TEST(JointTrajectory, ReadsBothSpellingsOfTimeAndNumbers) {
  const Temporary temporary;
  const host::Motion motion = readMotion(temporary, R"(header:
  stamp: {secs: 12, nsecs: 0}
joint_names: ["b", a]
points:
- {positions: [0.1, -2], time_from_start: {sec: 0, nanosec: 0}}
- positions: [+1e-3, .5]
  velocities: [1, 1]
  accelerations: []
  time_from_start: {secs: 1, nsecs: 499999}
- {positions: [3., 4], time_from_start: 1.0015, effort: [2, 2]}
---
)");
  EXPECT_EQ(motion.actuators, (std::vector<int>{1, 0}));
  EXPECT_EQ(motion.times, (std::vector<std::uint32_t>{0, 1000, 1002}));
  EXPECT_EQ(motion.positions, (std::vector<float>{0.1F, -2.0F, 1e-3F, 0.5F, 3.0F, 4.0F}));
  EXPECT_EQ(motion.notes.size(), 3U) << "the stamp, velocities and efforts are read over";
}

TEST(JointTrajectory, SaysWhatIsWrongAndWhere) {
  const std::string names = "joint_names: [a, b]\n";
  const std::string point = "- {positions: [0, 0], time_from_start: 1}\n";
  const struct {
    std::string text;
    const char* expected;
  } faults[] = {
      {"", "m.yaml:1:1: error: the file holds no trajectory"},
      {"a: [1\n", "m.yaml:2:1: error: not readable as YAML"},
      {"- 1\n", "m.yaml:1:1: error: the trajectory must be a map"},
      {"joint_names: [a]\n", "m.yaml:1:1: error: the key 'points' is missing"},
      {names + "points: []\n", "m.yaml:2:9: error: points: a list of at least one point"},
      {names + "points:\n" + point + "speed: 1\n", "m.yaml:4:1: error: unknown key 'speed'"},
      {names + names + "points:\n" + point,
       "m.yaml:2:1: error: the key 'joint_names' stands twice"},
      {"joint_names: [a, x]\npoints:\n" + point, "m.yaml:1:18: error: robot 'r' has no joint 'x'"},
      {"joint_names: [a, f]\npoints:\n" + point, "m.yaml:1:18: error: joint 'f' has no actuator"},
      {"joint_names: [a, a]\npoints:\n" + point, "m.yaml:1:18: error: joint 'a' is named twice"},
      {names + "points:\n- {positions: [0], time_from_start: 1}\n",
       "m.yaml:3:15: error: 1 positions for 2 joints"},
      {names + "points:\n- {positions: [0, 0], positions: [0, 0], time_from_start: 1}\n",
       "m.yaml:3:23: error: the key 'positions' stands twice"},
      {names + "points:\n- {positions: [0, .nan], time_from_start: 1}\n",
       "m.yaml:3:19: error: a position is '.nan'; a finite decimal number is needed"},
      {names + "points:\n- {positions: [0, \"1.5\"], time_from_start: 1}\n",
       "m.yaml:3:19: error: a position is text in quotes"},
      {names + "points:\n- {positions: [0, one], time_from_start: 1}\n",
       "m.yaml:3:19: error: a position is 'one'"},
      {names + "points:\n- {positions: [0, 1e40], time_from_start: 1}\n",
       "m.yaml:3:19: error: a position lies beyond single precision"},
      {names + "points:\n- {positions: [0, 0], time_from_start: -1}\n",
       "m.yaml:3:40: error: time_from_start is negative"},
      {names + "points:\n- {positions: [0, 0], time_from_start: .inf}\n",
       "m.yaml:3:40: error: time_from_start is '.inf'"},
      {names + "points:\n- {positions: [0, 0], time_from_start: {sec: 1.5, nanosec: 0}}\n",
       "m.yaml:3:46: error: seconds must be a whole number"},
      {names + "points:\n- {positions: [0, 0], time_from_start: {sec: 1, nsecs: 0}}\n",
       "m.yaml:3:40: error: time_from_start mixes two spellings"},
      {names + "points:\n" + point + "- {positions: [0, 0], time_from_start: 1.0004}\n",
       "m.yaml:4:40: error: two points fall on the millisecond 1000"},
      {names + "points:\n" + point + "- {positions: [0, 0], time_from_start: 0.5}\n",
       "m.yaml:4:40: error: time_from_start goes back from 1000 ms to 500 ms"},
      {names + "points:\n" + point + "---\nmore: 1\n",
       "m.yaml:1:1: error: the file holds more than one document"},
      {std::string(20000, '['), "m.yaml:1:"},
  };
  const Temporary temporary;
  for (const auto& fault : faults) {
    const std::string said = complaint(temporary, [&] { readMotion(temporary, fault.text); });
    EXPECT_EQ(said.rfind(fault.expected, 0), 0U) << said << "\nexpected " << fault.expected;
  }
}

TEST(Schedule, ApproachesWithinTheVelocityLimits) {
  const Temporary temporary;
  const host::Robot robot = host::readUrdf(temporary.write("r.urdf", twoJoints));
  const host::Motion motion =
      host::readJointTrajectory(temporary.write("m.yaml",
                                                "joint_names: [a, b]\npoints:\n"
                                                "- {positions: [0.5, -99], time_from_start: 0}\n"),
                                robot);
  host::RunOptions options;
  options.cycleMs = 7;
  EXPECT_EQ(host::planSchedule(robot, motion, options).leadMs, 504U)
      << "b goes to -1, at 2 a second";
  options.leadMs = 1;
  EXPECT_EQ(host::planSchedule(robot, motion, options).leadMs, 7U);
}

TEST(Schedule, RefusesWhatCannotBeMoved) {
  const Temporary temporary;
  const host::Robot robot = host::readUrdf(temporary.write(
      "r.urdf", robotText(joint("a", "revolute", "<limit lower='-1' upper='1' velocity='0'/>"))));
  std::string points;
  for (int i = 0; i < 40; ++i) {
    points += "- {positions: [0], time_from_start: " + std::to_string(0.001 * i) + "}\n";
  }
  const auto plan = [&](const std::string& text, std::uint32_t cycleMs) {
    const host::Motion motion = host::readJointTrajectory(
        temporary.write("m.yaml", "joint_names: [a]\npoints:\n" + text), robot);
    host::RunOptions options;
    options.cycleMs = cycleMs;
    return complaint(temporary, [&] { (void)host::planSchedule(robot, motion, options); });
  };
  EXPECT_EQ(plan("- {positions: [1], time_from_start: 0}\n", 10),
            "m.yaml:3:3: error: joint 'a' cannot move there: its velocity limit is 0");
  EXPECT_EQ(plan(points, 15), "accepted");
  EXPECT_EQ(plan(points, 16).rfind("m.yaml:34:3: error: 32 points within two cycles of 16 ms", 0),
            0U);
}

}  // namespace
