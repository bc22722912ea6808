#include "host/results/plot/picture.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>
#include <vector>

#include "host/base/visible.h"
#include "host/results/plot/panel.h"

namespace host {
namespace {

// Told apart with any colour vision, and by their lightness in print.
constexpr const char* commandColour = "#0072b2";
constexpr const char* measuredColour = "#e69f00";
constexpr const char* limitColour = "#bbbbbb";
constexpr const char* handOverColour = "#009e73";
constexpr const char* limitedPoint = "points pt 9 ps 0.8 lc rgb '#d55e00'";
constexpr const char* reachedPoint = "points pt 7 ps 0.45 lc rgb '#000000'";
constexpr const char* clearedPoint = "points pt 6 ps 0.6 lc rgb '#000000'";

/// In pixels.
struct Geometry {
  static constexpr double width = 1200.0;
  static constexpr double header = 64.0;
  static constexpr double footer = 44.0;
  std::size_t columns = 1;
  std::size_t rows = 1;
  double panelHeight = 260.0;

  /// Of each panel, one below the other.
  std::size_t layers = 1;

  Geometry(std::size_t panels, std::size_t layers_) : layers(layers_) {
    columns = panels <= 2 ? 1 : panels <= 8 ? 2 : panels <= 24 ? 3 : 4;
    rows = (panels + columns - 1) / columns;
    panelHeight = columns == 1 ? 280.0 : columns == 2 ? 220.0 : 172.0;
  }

  [[nodiscard]] double height() const {
    return header + footer + static_cast<double>(rows * layers) * panelHeight;
  }
  /// From the top left corner to gnuplot's fractions from the bottom left one.
  [[nodiscard]] static double x(double pixels) { return pixels / width; }
  [[nodiscard]] double y(double pixels) const { return 1.0 - pixels / height(); }
};

void replaceAll(std::string& text, const std::string& what, const std::string& by) {
  for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size()) {
    text.replace(at, what.size(), by);
  }
}

/// In single quotes gnuplot takes everything as it stands. XML holds what is visible, and ends
/// a section at a certain three characters.
std::string quoted(const std::string& text) {
  std::string result = visible(text);
  replaceAll(result, "]]>", "]] >");
  // What begins with a doubled quote it takes for an empty text.
  const std::size_t quotes = std::min(result.find_first_not_of('\''), result.size());
  std::string rest = result.substr(quotes);
  replaceAll(rest, "'", "''");
  return (quotes > 0 ? "\"" + result.substr(0, quotes) + "\"." : "") + "'" + rest + "'";
}

/// The distance of about so many marks: 1, 2 or 5 times a power of ten.
double markDistance(double span, double marks) {
  const double raw = span / marks;
  const double power = std::pow(10.0, std::floor(std::log10(raw)));
  const double share = raw / power;
  return power * (share < 1.5 ? 1.0 : share < 3.5 ? 2.0 : share < 7.5 ? 5.0 : 10.0);
}

class Picture {
 public:
  Picture(const std::vector<Panel>& panels, const std::vector<Panel>& velocities,
          const std::string& title)
      : panels_(panels),
        velocities_(velocities),
        geometry_(panels.size(), velocities.empty() ? 1 : 2) {
    for (const Panel& panel : panels) {
      for (const auto* dots : {&panel.command, &panel.reached, &panel.cleared}) {
        if (!dots->empty()) {
          firstSecond_ = std::min(firstSecond_, dots->front().seconds);
          lastSecond_ = std::max(lastSecond_, dots->back().seconds);
        }
      }
    }
    add("set terminal svg size {:.0f},{:.0f} dynamic noenhanced font 'sans-serif,11' background "
        "'#ffffff'\n",
        Geometry::width, geometry_.height());
    add("set encoding utf8\nset multiplot\nunset key\n");
    add("set title offset 0,-0.6\nset style data lines\n");
    drawHeader(title);
  }

  std::string draw() {
    for (std::size_t i = 0; i < panels_.size(); ++i) {
      drawPanel(panels_[i], i, 0);
      if (!velocities_.empty()) {
        drawPanel(velocities_[i], i, 1);
      }
    }
    add("unset multiplot\n");
    return std::move(script_);
  }

 private:
  template <typename... Arguments>
  void add(const char* format, const Arguments&... arguments) {
    script_ += fmt::format(fmt::runtime(format), arguments...);
  }

  void label(const std::string& text, double xPixels, double yPixels, const char* style) {
    add("set label {} at screen {:.5f},{:.5f} {}\n", quoted(text), Geometry::x(xPixels),
        geometry_.y(yPixels), style);
  }

  /// The title, the legend and the name of the axis, in a plot of nothing.
  void drawHeader(const std::string& title) {
    label(title, 20.0, 20.0, "font ',14'");
    label("seconds after the start of the motion", Geometry::width / 2.0, geometry_.height() - 12.0,
          "center font ',11'");
    drawLegend();
    add("set margins at screen 0, screen 1, screen 0, screen 1\n");
    add("unset border\nunset tics\nplot [0:1] [0:1] NaN notitle\nunset label\nunset arrow\n");
    add("set border 3 lc rgb '#666666'\nset tics nomirror scale 0.5 font ',10'\n");
  }

  template <typename Entry>
  [[nodiscard]] bool occurs(std::vector<Entry> Panel::*entries) const {
    const auto has = [entries](const Panel& panel) { return !(panel.*entries).empty(); };
    return std::any_of(panels_.begin(), panels_.end(), has) ||
           std::any_of(velocities_.begin(), velocities_.end(), has);
  }

  /// Of what occurs.
  void drawLegend() {
    constexpr double legendY = 46.0;
    double x = 20.0;
    const auto line = [&](bool isThere, const char* text, const std::string& style, double room) {
      if (isThere) {
        add("set arrow from screen {:.5f},{:.5f} to screen {:.5f},{:.5f} nohead {}\n",
            Geometry::x(x), geometry_.y(legendY), Geometry::x(x + 28.0), geometry_.y(legendY),
            style);
        label(text, x + 36.0, legendY, "");
        x += room;
      }
    };
    const auto dot = [&](bool isThere, const char* text, const char* style, double room) {
      if (isThere) {
        label(" ", x + 8.0, legendY,
              fmt::format("point {}", style + std::strlen("points ")).c_str());
        label(text, x + 20.0, legendY, "");
        x += room;
      }
    };
    line(occurs(&Panel::command), "commanded", fmt::format("lw 1.6 lc rgb '{}'", commandColour),
         115.0);
    line(occurs(&Panel::measured), "measured", fmt::format("lw 3.5 lc rgb '{}'", measuredColour),
         110.0);
    line(occurs(&Panel::limits), "limit", fmt::format("lw 1.2 lc rgb '{}'", limitColour), 85.0);
    line(occurs(&Panel::handOvers), "a batch is handed over, with its mode",
         fmt::format("lw 1.2 dt 2 lc rgb '{}'", handOverColour), 280.0);
    dot(occurs(&Panel::reached), "point", reachedPoint, 65.0);
    dot(occurs(&Panel::cleared), "point that a later batch cleared", clearedPoint, 220.0);
    dot(occurs(&Panel::limited), "point that was moved into the limits", limitedPoint, 0.0);
  }

  void drawPanel(const Panel& panel, std::size_t index, std::size_t layer) {
    const std::size_t column = index % geometry_.columns;
    const std::size_t row = index / geometry_.columns * geometry_.layers + layer;
    const double panelWidth = Geometry::width / static_cast<double>(geometry_.columns);
    const double left = static_cast<double>(column) * panelWidth;
    const double top = Geometry::header + static_cast<double>(row) * geometry_.panelHeight;
    add("set margins at screen {:.5f}, screen {:.5f}, screen {:.5f}, screen {:.5f}\n",
        Geometry::x(left + 56.0), Geometry::x(left + panelWidth - 14.0),
        geometry_.y(top + geometry_.panelHeight - 26.0), geometry_.y(top + 22.0));
    add("set title {} font ',11'\n", quoted(panel.title));
    drawAxes(panel);
    for (const Panel::HandOver& handOver : panel.handOvers) {
      add("set arrow from {0:.6g}, graph 0 to {0:.6g}, graph 1 nohead back lw 1.2 dt 2 lc rgb "
          "'{1}'\n",
          handOver.seconds, handOverColour);
      add("set label {} at {:.6g}, graph 0.98 right rotate by 90 offset 1.0,0 font ',9' tc rgb "
          "'{}'\n",
          quoted(handOver.modes), handOver.seconds, handOverColour);
    }
    drawCurves(panel);
    add("unset arrow\nunset label\n");
  }

  void drawAxes(const Panel& panel) {
    const double span = panel.most - panel.least;
    const double seconds = std::max(lastSecond_ - firstSecond_, 1e-3);
    constexpr double margin = 0.06;
    add("set xrange [{:.6g}:{:.6g}]\nset yrange [{:.9g}:{:.9g}]\n", firstSecond_,
        firstSecond_ + seconds, panel.least - margin * span, panel.most + margin * span);
    add("set xtics nomirror {:.3g}\nset ytics nomirror {:.3g}\n",
        markDistance(seconds, geometry_.columns == 1 ? 12.0 : 8.0), markDistance(span, 3.0));
  }

  void drawCurves(const Panel& panel) {
    std::string plots;
    const auto curve = [&](const char* name, const std::vector<Panel::Dot>& dots,
                           const std::string& style) {
      if (dots.empty()) {
        return;
      }
      add("${} << EOD\n", name);
      for (const Panel::Dot& dot : dots) {
        add("{:.6g} {:.6g}\n", dot.seconds, dot.value);
      }
      add("EOD\n");
      plots += fmt::format("{}${} {}", plots.empty() ? "" : ", ", name, style);
    };
    for (const double limit : panel.limits) {
      plots +=
          fmt::format("{}{:.9g} lw 1.2 lc rgb '{}'", plots.empty() ? "" : ", ", limit, limitColour);
    }
    curve("measured", panel.measured, fmt::format("lw 3.5 lc rgb '{}'", measuredColour));
    curve("command", panel.command, fmt::format("lw 1.6 lc rgb '{}'", commandColour));
    curve("cleared", panel.cleared, fmt::format("with {}", clearedPoint));
    curve("reached", panel.reached, fmt::format("with {}", reachedPoint));
    curve("limited", panel.limited, fmt::format("with {}", limitedPoint));
    add("plot {}\n", plots.empty() ? "NaN" : plots);
  }

  const std::vector<Panel>& panels_;
  const std::vector<Panel>& velocities_;
  const Geometry geometry_;
  double firstSecond_ = 0.0;
  double lastSecond_ = 0.0;
  std::string script_;
};

}  // namespace

std::string pictureScript(const RunResult& result, const Plan& plan, const RunLog& log,
                          const std::string& title, const PictureOptions& options) {
  const std::vector<Panel> panels = panelsOf(result, plan, log, options);
  const std::vector<Panel> velocities = velocityPanelsOf(result, options);
  return Picture(panels, velocities, title).draw();
}

}  // namespace host
