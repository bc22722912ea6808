#pragma once

#include "host/base/values.h"
#include "host/results/outcome.h"
#include "host/results/runoptions.h"

namespace host {

/// The outcome of a run as one object; `docs/run.schema.json` describes it.
Json runJson(const RunOptions& options, const RunResult& result, const Plan& plan,
             const Outcome& outcome);

}  // namespace host
