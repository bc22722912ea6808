#pragma once

#include <string>

namespace host {

/// Writes to standard output, in one piece where the system takes it so, while
/// a `StopSignal` lives. The result is the status to exit with, if it is not
/// `okStatus`: after a signal, and when writing fails, which `statusOf` says.
int writeOut(const std::string& text);

/// The same for what moves a terminal's cursor; the names in it have been through `visible`.
int sendOut(const std::string& bytes);

}  // namespace host
