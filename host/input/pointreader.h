#pragma once

#include <cstddef>
#include <map>
#include <string>

#include "host/input/commandbatch.h"
#include "host/input/document.h"
#include "host/input/motionoptions.h"

namespace host {

/// The most commands of all motions of a run.
constexpr std::size_t mostCommands = 2'000'000;

/// The actuators of a machine, which must outlive the object, by their names.
class ActuatorNames {
 public:
  explicit ActuatorNames(const MachineModel& machine);

  [[nodiscard]] const MachineModel& machine() const { return machine_; }
  /// The index of the actuator with this name; -1 when there is none.
  [[nodiscard]] int named(const std::string& name) const;
  /// The same, by the bare or full key of its value.
  [[nodiscard]] int withKey(const std::string& key) const;
  /// By its name or else by its key.
  [[nodiscard]] int find(const std::string& nameOrKey) const;

 private:
  const MachineModel& machine_;
  const std::map<std::string, int> actuators_;
  /// The same by the keys of their values.
  std::map<std::string, int> keys_;
};

/// Reads the points of a motion: values that suit their actuators, and times
/// that rise.
class PointReader {
 public:
  /// Document and names must outlive the reader.
  PointReader(const Document& document, const ActuatorNames& names, const MotionOptions& options)
      : document_(document), names_(names), options_(options) {}

  [[nodiscard]] const MotionOptions& options() const { return options_; }

  [[nodiscard]] const Document& document() const { return document_; }
  [[nodiscard]] const MachineModel& machine() const { return names_.machine(); }

  [[nodiscard]] int actuatorNamed(const std::string& name) const { return names_.named(name); }
  [[nodiscard]] int findActuator(const std::string& nameOrKey) const {
    return names_.find(nameOrKey);
  }
  [[nodiscard]] int actuatorWithKey(const std::string& key) const { return names_.withKey(key); }

  /// The record that commands the value at `node`. An actuator below 0 is one whose name is
  /// wrong, which was reported: then any number will do.
  [[nodiscard]] hal::AttrGeneric value(const Node& node, int actuator, const char* what) const;

  /// Adds the time at `node`; reports one that does not lie behind the point before.
  void addTime(const Node& node, const char* what, CommandBatch& batch) const;

 private:
  const Document& document_;
  const ActuatorNames& names_;
  const MotionOptions options_;
};

}  // namespace host
