#pragma once

#include <string>

#include "host/results/outcome.h"
#include "host/results/runoptions.h"

namespace host {

/// The outcome of a run as one JSON object; `docs/run.schema.json` describes it.
std::string runJson(const RunOptions& options, const RunResult& result, const Plan& plan,
                    const Outcome& outcome);

}  // namespace host
