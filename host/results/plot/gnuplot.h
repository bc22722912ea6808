#pragma once

#include <string>

namespace host {

/// True when gnuplot can be started.
bool hasGnuplot();

/// Runs a script; the result is the SVG that it draws. A signal that comes
/// meanwhile ends gnuplot, too. Throws `std::runtime_error` when there is no whole
/// drawing; gnuplot has then said why on standard error.
std::string drawnByGnuplot(const std::string& script);

}  // namespace host
