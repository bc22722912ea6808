#include "host/input/requestreader.h"
#include "tests/support/refusal.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "host/input/machinefile.h"
#include "host/input/motionfile.h"
#include "tests/support/temporary.h"

namespace {

class Request : public testing::Test {
 protected:
  [[nodiscard]] host::BatchRequest read(const std::string& text) const {
    return readBatchRequest(text, names_);
  }
  [[nodiscard]] std::string complaint(const std::string& text) const {
    return refusal<host::UserError>([&] { (void)read(text); });
  }

  const Temporary folder_;
  const host::MachineModel machine_ = host::readMachineFile(folder_.write(
      "m.yaml",
      "actuators: [{name: a, minimum: -1, maximum: 2}, {name: b}, {name: i, type: 2}]\n"));
  const host::ActuatorNames names_{machine_};
};

TEST_F(Request, HoldsTheBatchesOfAMotionFile) {
  for (
      const char* const batch :
      {R"({"at": 1, "mode": "replace", "key": "a/Value", "items": [{"time": 0.5, "value": -1e-1}]})",
       R"({"at": 2, "from": 1.5, "mode": "clear_before", "speed": 2, "trajectory": {"joint_names":
              ["i", "b"], "points": [{"positions": [7, 0.5], "time_from_start": {"sec": 1}}, {"positions":
              [-8, 1], "velocities": [1, 2], "accelerations": [3, 4], "time_from_start": 9}]}})",
       R"({"at": 4, "key": "i/Value", "items": [{"time": 1, "value": 1}], "repeat": 3})",
       R"({"at": 5, "key": "\u0062/Value", "items": [], "mode": "replace", "interpolation": "smooth"})"}) {
    const std::string text = std::string("{\"batches\": [") + batch + "]}";
    const host::CommandBatch file =
        readMotionFiles({folder_.write("f.yaml", text)}, machine_).front();
    const host::RequestedBatch request = read(text).batches.at(0);
    const host::CommandBatch& commands = request.commands;
    EXPECT_EQ(request.atMs, file.atMs);
    EXPECT_EQ(request.fromMs, file.fromMs);
    EXPECT_EQ(commands.actuators, file.actuators);
    EXPECT_EQ(commands.times, file.times);
    ASSERT_EQ(commands.values.size(), file.values.size());
    for (std::size_t i = 0; i < file.values.size(); ++i) {
      EXPECT_EQ(commands.values[i].asInt, file.values[i].asInt) << batch;
    }
    EXPECT_EQ(testing::PrintToString(commands.accelerations),
              testing::PrintToString(file.accelerations));
    EXPECT_EQ(std::pair(commands.mode, commands.repeat), std::pair(file.mode, file.repeat));
    EXPECT_EQ(commands.interpolation, file.interpolation);
  }
  const host::BatchRequest now = read(
      R"({"commander": "7f", "dry_run": true, "batches": [{"key": "a/Value", "items": [{"time": 0, "value": 0}]}]})");
  EXPECT_EQ(now.commander, "7f");
  EXPECT_TRUE(now.isDryRun);
  EXPECT_FALSE(now.batches[0].atMs || now.batches[0].fromMs);
}

TEST_F(Request, SaysWhatIsWrongAndInWhichField) {
  const std::string item = R"({"time": 1, "value": 0})";
  const auto items = [](const std::string& inner) {
    return R"({"batches": [{"key": "a/Value", "items": [)" + inner + "]}]}";
  };
  for (const auto& [text, expected] : std::vector<std::pair<std::string, std::string>>{
           {"", ": error: not readable as JSON at line 1, column 1"},
           {"{\"batches\":\n [{\"a\" 1}]}",
            "/batches/0/a: error: not readable as JSON at line 2, column 8"},
           {"[]", ": error: the request must be a map"},
           {"{}", ": error: the key 'batches' is missing"},
           {R"({"batches": []})",
            "/batches: error: batches: a list of at least one batch is needed"},
           {items(std::string(item).append(",").append(item)),
            "/batches/0/items/1/time: error: two points have the same"},
           {items(R"({"time": 1, "value": "0"})"),
            "/batches/0/items/0/value: error: value is text in quotes"},
           {items(R"({"time": 1, "value": 1e39})"),
            "/batches/0/items/0/value: error: value is beyond single"},
           {items(R"({"time": 1, "value": 0, "a/~": 0})"),
            "/batches/0/items/0/a~1~0: error: unknown key"},
           {items(R"({"time": 1, "time": 2, "value": 0})"),
            "/batches/0/items/0/time: error: duplicate key"},
           {items(""),
            "/batches/0: error: items is empty; this is possible only with mode replace"},
           {R"({"batches": [{"key": "c/Value", "items": []}]})",
            "/batches/0/key: error: 'c/Value' is not"},
           {R"({"batches": [{"mode": true}]})", "/batches/0/mode: error: mode must be text"},
           {R"({"batches": [{"trajectory_file": "/etc/passwd"}]})",
            "/batches/0/trajectory_file: error: the machine reads no files"},
           {R"({"batches": [{"at": -1, "trajectory": {"joint_names": ["c"], "points": []}}]})",
            "/batches/0/at: error: at must be machine time, in seconds from 0\n"
            "/batches/0/trajectory/joint_names/0: error: machine 'm' has no joint 'c'"},
           {R"({"dry_run": "true", "batches": 1})", "/dry_run: error: dry_run is"},
           {std::string(70, '[') + std::string(70, ']'), "/0/0/"}}) {
    const std::string said = complaint(text);
    EXPECT_EQ(said.rfind(expected, 0), 0U) << said << "\nexpected " << expected;
  }
}

}  // namespace
