#include "host/results/plot/plot.h"

#include <exception>
#include <stdexcept>
#include <utility>

#include "host/base/usererror.h"
#include "host/results/plot/gnuplot.h"
#include "host/results/plot/picture.h"

namespace host {

Plot::Plot(const std::string& path, std::string title, const Plan& plan, PictureOptions options)
    : path_(path),
      file_(path),
      title_(std::move(title)),
      plan_(plan),
      options_(std::move(options)) {
  if (!hasGnuplot()) {
    throw UserError(path, {}, "cannot be drawn: gnuplot is not installed (package gnuplot-nox)");
  }
}

void Plot::draw(const RunResult& result, const RunLog& log) {
  std::string drawn;
  try {
    drawn = drawnByGnuplot(pictureScript(result, plan_, log, title_, options_));
  } catch (const std::exception& error) {
    throw std::runtime_error(path_ + ": " + error.what());
  }
  file_.write(drawn.data(), drawn.size());
  file_.commit();
}

}  // namespace host
