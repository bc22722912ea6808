#include "host/results/checkjson.h"

#include <nlohmann/json.hpp>

#include "host/base/values.h"

namespace host {
namespace {

constexpr int formatNumber = 1;

Json countsJson(const CheckOutcome& outcome) {
  Json counts = {{"batches", Json()}, {"points", Json()}, {"actuators", Json()}};
  if (outcome.counts) {
    counts = {{"batches", outcome.counts->batches},
              {"points", outcome.counts->points},
              {"actuators", outcome.counts->actuators}};
  }
  counts["warnings"] = outcome.warnings.size();
  counts["errors"] = outcome.errors.size();
  return counts;
}

}  // namespace

std::string checkJson(const CheckOutcome& outcome) {
  const Json object = {{"format", formatNumber},
                       {"machine", outcome.machine ? Json(*outcome.machine) : Json()},
                       {"machine_file", outcome.machinePath},
                       {"motions", outcome.motionPaths},
                       {"cycle_ms", outcome.cycleMs},
                       {"counts", countsJson(outcome)},
                       {"notes", outcome.notes},
                       {"stretched", stretchedJson(outcome.stretched)},
                       {"warnings", findingsJson(outcome.warnings)},
                       {"errors", findingsJson(outcome.errors)}};
  return printed(object, 2) + "\n";
}

}  // namespace host
