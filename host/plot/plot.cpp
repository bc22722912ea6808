#include "host/plot/plot.h"

#include <exception>
#include <stdexcept>
#include <utility>

#include "host/input/source.h"
#include "host/plot/gnuplot.h"
#include "host/plot/picture.h"

namespace host {

Plot::Plot(const std::string& path, std::string title)
    : path_(path), file_(path), title_(std::move(title)) {
  if (!hasGnuplot()) {
    throw InputError(path, {}, "cannot be drawn: gnuplot is not installed (package gnuplot-nox)");
  }
}

void Plot::draw(const Torvex& torvex, const Plan& plan) {
  std::string drawn;
  try {
    drawn = drawnByGnuplot(pictureScript(torvex, plan, title_));
  } catch (const std::exception& error) {
    throw std::runtime_error(path_ + ": " + error.what());
  }
  file_.write(drawn.data(), drawn.size());
  file_.commit();
}

}  // namespace host
