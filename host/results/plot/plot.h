#pragma once

#include <string>

#include "host/base/outputfile.h"
#include "host/engine/runresult.h"
#include "host/motion/plan.h"
#include "host/results/plot/panel.h"
#include "host/results/runlog.h"

namespace host {

/// The picture of a run, drawn by gnuplot: a panel for each actuator.
class Plot {
 public:
  /// The plan must outlive the picture. Throws `UserError` when the file cannot be written, and
  /// when gnuplot is not there.
  Plot(const std::string& path, std::string title, const Plan& plan, PictureOptions options);

  /// Draws the run and puts the whole file at its path. Throws what went wrong.
  void draw(const RunResult& result, const RunLog& log);

 private:
  const std::string path_;
  OutputFile file_;
  const std::string title_;
  const Plan& plan_;
  const PictureOptions options_;
};

}  // namespace host
