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
  std::vector<HandOver> handOvers;
  /// Limits that lie within the panel.
  std::vector<double> limits;
  double least = 0.0;
  double most = 0.0;
};

/// The panels of a run, in the order of its actuators.
std::vector<Panel> panelsOf(const RunResult& result, const Plan& plan, const RunLog& log);

}  // namespace host
