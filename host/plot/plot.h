#pragma once

#include <string>

#include "host/outputfile.h"
#include "host/torvex.h"

namespace host {

/// The picture of a run, drawn by gnuplot: a panel for each actuator.
class Plot {
 public:
  /// Throws `InputError` when the file cannot be written, and when gnuplot is not
  /// there.
  Plot(const std::string& path, std::string title);

  /// Draws the run and puts the file in its place. Throws what went wrong.
  void draw(const Torvex& torvex, const Plan& plan);

 private:
  const std::string path_;
  OutputFile file_;
  const std::string title_;
};

}  // namespace host
