#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/base/usererror.h"
#include "host/base/words.h"
#include "host/input/machinemodel.h"
#include "timedcommand/timedcommand.h"

namespace host {

/// How the segments between the points of interpolating actuators run.
enum class Interpolation : std::uint8_t {
  message,  ///< cubic where both ends have velocities, quintic with accelerations, else lines
  linear,
  smooth,  ///< as `message`, with velocities for points that have none
};

constexpr Word<Interpolation> interpolationWords[] = {{"message", Interpolation::message},
                                                      {"linear", Interpolation::linear},
                                                      {"smooth", Interpolation::smooth}};

constexpr Word<TimedCommand::commandType> modeWords[] = {
    {"merge", TimedCommand::MERGE},
    {"replace", TimedCommand::REPLACE},
    {"clear_after", TimedCommand::CLEAR_AFTER},
    {"clear_before", TimedCommand::CLEAR_BEFORE}};

/// Commands that are handed over together: what some of a machine's actuators
/// are to hold, and when. Times count from the start of the motion.
struct CommandBatch {
  std::string path;
  /// Where it stands in the file.
  SourceLocation location;
  /// The file that its points stand in; in a request, the pointer of their list.
  std::string pointsPath;
  /// When it is handed over. A trajectory that is a file of its own has no such
  /// moment: its first point is approached from the first cycle on.
  std::optional<std::uint32_t> atMs;
  /// What its points' times count from.
  std::uint32_t fromMs = 0;
  /// How many rounds its points are done. Each after the first begins at the time of the
  /// last point, which then is not 0, and leaves out a point at time 0.
  std::uint32_t repeat = 1;
  TimedCommand::commandType mode = TimedCommand::MERGE;
  /// It has no points, and brings its actuators to rest.
  bool isStop = false;
  /// The actuator of each column, as its index in the machine's description.
  std::vector<int> actuators;
  /// Milliseconds, strictly rising.
  std::vector<std::uint32_t> times;
  /// One row a point, one column an actuator; each of its actuator's type.
  std::vector<hal::AttrGeneric> values;
  /// In the order of `values`, in units a second and a second squared; not a number where a
  /// point has none. Empty where no point has any. No acceleration without velocity.
  std::vector<float> velocities;
  std::vector<float> accelerations;
  /// None: as the run has it.
  std::optional<Interpolation> interpolation;
  /// By what its times were stretched beyond those of the file, to keep to limits.
  double stretch = 1.0;
  /// Where each point stands in its file.
  std::vector<SourceLocation> locations;
  /// What was ignored, in words for a user.
  std::vector<std::string> notes;

  [[nodiscard]] const hal::AttrGeneric& value(std::size_t point, std::size_t column) const {
    return values[point * actuators.size() + column];
  }
  /// The row of a point by its number; those of the later rounds go on counting.
  [[nodiscard]] std::size_t rowOf(std::uint64_t point) const;
  /// Of all rounds, for one actuator.
  [[nodiscard]] std::uint64_t size() const;
  /// When the last round ends; 0 without points.
  [[nodiscard]] std::int64_t lastMs() const;
};

/// The word for its mode, or "stop".
const char* modeName(const CommandBatch& batch);

}  // namespace host
