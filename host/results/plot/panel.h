#pragma once

#include <string>
#include <vector>

#include "host/engine/runresult.h"
#include "host/motion/plan.h"
#include "host/results/runlog.h"

namespace host {

/// What the panel of one actuator shows; times are seconds after the start of
/// the motion.
struct Panel {
  struct Dot {
    double seconds;
    double value;
  };
  struct HandOver {
    double seconds;
    /// Of all batches at this moment.
    std::string modes;
  };

  std::string title;
  std::vector<Dot> command;
  std::vector<Dot> measured;
  std::vector<Dot> reached;
  std::vector<Dot> cleared;
  /// Those of both that were moved into the limits.
  std::vector<Dot> limited;
  std::vector<HandOver> handOvers;
  /// Limits that lie within the panel.
  std::vector<double> limits;
  double least = 0.0;
  double most = 0.0;
};

/// What a picture shows of a run.
struct PictureOptions {
  /// A second row of panels.
  bool velocities = false;
  /// The names of actuators, as in the shell.
  std::string joints = "*";
};

/// Whether the pattern, as in the shell, has the name.
bool isChosen(const std::string& pattern, const std::string& name);

/// The panels of a run, in the order of its actuators: what was commanded, and the same of
/// its velocities.
std::vector<Panel> panelsOf(const RunResult& result, const Plan& plan, const RunLog& log,
                            const PictureOptions& options);
std::vector<Panel> velocityPanelsOf(const RunResult& result, const PictureOptions& options);

}  // namespace host
