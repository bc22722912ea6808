#pragma once

#include <string>

namespace host {

/// True when gnuplot can be started.
bool hasGnuplot();

/// Runs a script; what it draws goes to the open file `output`. Throws
/// `std::runtime_error` when gnuplot fails; it has then said why on standard
/// error.
void runGnuplot(const std::string& script, int output);

}  // namespace host
