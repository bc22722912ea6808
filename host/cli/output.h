#pragma once

#include <string>
#include <vector>

#include "host/results/findings.h"

namespace host {

// Both streams of this process. Texts pass through `visible`.

/// Writes to standard output, in one piece where the system takes it so, whatever signals come; a
/// failure is kept for `outputFailure`: it must not end a run.
void say(const std::string& text);
/// The same while a `StopSignal` lives, and until a signal comes. The result is the status to exit
/// with, if it is not `okStatus`: after a signal, and when writing fails.
int writeOut(const std::string& text);
/// The same for what moves a terminal's cursor; the names in it have been through `visible`.
int sendOut(const std::string& bytes);
/// Why standard output could not be written first, as an `errno`; 0: it could.
int outputFailure();

/// Writes to standard error.
void complain(const std::string& text);
/// The same, a line each; of very many the first ones, `--json` has all.
void complainAll(const char* kind, const std::vector<Finding>& findings);

}  // namespace host
