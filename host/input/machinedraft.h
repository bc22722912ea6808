#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/base/errorcollector.h"
#include "host/input/actuatorfields.h"
#include "host/input/machinemodel.h"

namespace host {

/// Names that may be given once, each with where it stands.
class NameTable {
 public:
  /// Throws `UserError` when there is one of this name, which is what `noun` says.
  void take(const std::string& name, const FileLocation& where, const std::string& noun);
  [[nodiscard]] bool holds(const std::string& name) const { return names_.count(name) != 0; }

 private:
  std::map<std::string, FileLocation> names_;
};

/// A machine while its files are read: what they add, under names that are unique and within
/// what a device pool holds. Limits and initial values are gathered, so that a later file may
/// say better, and settled at the end.
class MachineDraft {
 public:
  enum class Counted { attributes, preferences, textBytes };

  /// The text of a file. Throws `UserError`.
  using TextOf = std::function<std::string(const std::string& path)>;

  explicit MachineDraft(ErrorCollector& errors, TextOf textOf = {});

  [[nodiscard]] ErrorCollector& errors() const { return errors_; }
  [[nodiscard]] std::string textOf(const std::string& path) const { return textOf_(path); }

  /// Adds to a count. What leads beyond its bound is an error, and ends the reading.
  void take(Counted what, std::size_t amount, const FileLocation& where);

  /// Their names are in `subDevices`.
  void addActuator(simulation::Actuator actuator, ActuatorFields fields);
  void addSensor(simulation::Sensor sensor, const FileLocation& where);

  /// The index of an actuator; -1 when there is none.
  [[nodiscard]] int actuator(const std::string& name) const;
  [[nodiscard]] ActuatorFields& fields(int actuator) {
    return fields_[static_cast<std::size_t>(actuator)];
  }
  /// Null when there is none.
  [[nodiscard]] simulation::Sensor* sensor(const std::string& name);

  /// What is not found may be the one whose name could not be read: then nothing more is said.
  [[noreturn]] void failAsUnknown(const FileLocation& where, const std::string& what) const;

  /// The machine with all limits and values. Throws a `UserError` of all that is wrong.
  MachineModel finish();

  MachineModel model;
  NameTable devices;
  /// Actuators and sensors.
  NameTable subDevices;
  /// Entries of `joints`.
  NameTable joints;
  /// Of the sensors that have none of their own.
  double timeConstant = simulation::Sensor().timeConstant;
  /// Of all actuators that have none of their own; units a second.
  std::optional<double> approachVelocity;
  /// The same; units a second squared.
  std::optional<double> maximumAcceleration;
  /// No entry, and not the URDF, is so broken that its name is missing here.
  bool namesAreComplete = true;

 private:
  void setApproachVelocity(std::size_t actuator);
  void setMaximumAcceleration(std::size_t actuator);

  ErrorCollector& errors_;
  const TextOf textOf_;
  std::array<std::size_t, 3> counts_ = {};
  std::vector<ActuatorFields> fields_;
  std::map<std::string, int> actuators_;
  std::map<std::string, std::size_t> sensors_;
};

}  // namespace host
