#pragma once

#include <string>

#include "host/engine/runresult.h"
#include "host/motion/plan.h"
#include "host/results/plot/panel.h"
#include "host/results/runlog.h"

namespace host {

/// The script by which gnuplot draws a run as SVG to its standard output.
std::string pictureScript(const RunResult& result, const Plan& plan, const RunLog& log,
                          const std::string& title, const PictureOptions& options);

}  // namespace host
