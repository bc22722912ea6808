#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/engine/runresult.h"
#include "host/motion/plan.h"
#include "host/results/findings.h"

namespace host {

/// What became of one commanded axis.
enum class Verdict {
  reached,  ///< it holds what was asked last
  limited,  ///< it holds the limit, since more was asked
  stopped,  ///< a batch or a signal stopped it on its way
  held,     ///< the guard brought it to rest
  missed,   ///< it does not do what it was told
};
const char* nameOf(Verdict verdict);

/// One axis at the end of a run.
struct AxisOutcome {
  const AxisResult& result;
  /// What the last point asks for; none where it was stopped.
  std::optional<hal::AttrGeneric> asked;
  Verdict verdict = Verdict::reached;
};

/// What is known of a run at its end.
struct Outcome {
  std::string machine;
  std::vector<AxisOutcome> axes;
  std::vector<Finding> warnings;
  std::vector<Finding> errors;
  std::vector<Stretched> stretched;
  /// What was exported, a line each.
  std::vector<std::string> exports;
  /// Rows that the disk could not keep up with.
  std::uint64_t droppedTraceRows = 0;
  std::uint64_t droppedRecordingRows = 0;
  std::uint64_t droppedRingRows = 0;
  /// Files that the ring was written to, and requests for one that were not granted.
  std::vector<std::string> ringFiles;
  std::uint64_t ringLeftOut = 0;
  /// The signal that stopped it; 0 when none did.
  int signal = 0;
};

/// The axes of a run, judged; the result must outlive them. Why one missed what it was told is
/// added to the errors.
std::vector<AxisOutcome> judgedAxes(const RunResult& result, const Plan& plan, Outcome& outcome);

/// That rows are missing in an output.
Finding droppedRowsFinding(const std::string& output, std::uint64_t rows);

/// What a user should know of how the cycles went.
std::vector<Finding> cycleFindings(const RunResult& result);

}  // namespace host
