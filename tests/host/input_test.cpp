#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
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

const std::string fewJoints = robotText(
    joint("a", "revolute", limit) + joint("b", "prismatic", limit) + joint("f", "fixed", "") +
    joint("z", "revolute", "<limit lower='-1' upper='1' velocity='0'/>"));

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

/// Runs every text of a file of bad inputs, each behind a line ">>> " with how
/// its message must begin.
template <typename Read>
void expectComplaints(const std::string& faults, const std::string& inputName, const Read& read) {
  const Temporary temporary;
  std::istringstream cases(contentsOf(BAD_INPUT "/" + faults));
  std::string line;
  int count = 0;
  for (std::getline(cases, line); cases; ++count) {
    const std::string expected = inputName + ":" + line.substr(4);
    std::string text;
    while (std::getline(cases, line) && line.rfind(">>> ", 0) != 0) {
      text += line + "\n";
    }
    const std::string path = temporary.write(inputName, text);
    const std::string said = complaint(temporary, [&] { read(path); });
    EXPECT_EQ(said.rfind(expected, 0), 0U) << said << "\nexpected " << expected;
  }
  EXPECT_GT(count, 10);
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
  expectComplaints("urdf.txt", "r.urdf", [](const std::string& path) { host::readUrdf(path); });
  const Temporary temporary;
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
  const host::Robot robot = host::readUrdf(temporary.write("r.urdf", fewJoints));
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
  const Temporary temporary;
  const host::Robot robot = host::readUrdf(temporary.write("r.urdf", fewJoints));
  host::RunOptions options;
  options.cycleMs = 16;
  expectComplaints("trajectory.txt", "m.yaml", [&](const std::string& path) {
    (void)host::planSchedule(robot, host::readJointTrajectory(path, robot), options);
  });
}

}  // namespace
