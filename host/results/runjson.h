#pragma once

#include "host/results/outcome.h"
#include "host/values.h"

namespace host {

/// The outcome of a run as one object; `docs/run.schema.json` describes it.
Json runJson(const Torvex& torvex, const Plan& plan, const Outcome& outcome);

}  // namespace host
