#pragma once

#include <string>

namespace bench {

/// Says on a terminal what is measured; nothing in a pipe. How many passes there will
/// be is not known before: the benchmark library settles that as it goes.
void showProgress(const std::string& benchmark);

/// Removes the line, before anything else is printed.
void endProgress();

}  // namespace bench
