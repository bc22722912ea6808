#pragma once

#include <functional>
#include <string>
#include <vector>

#include "host/results/findings.h"

namespace host {

constexpr int okStatus = 0;
/// Not all was as it should be; it was said what.
constexpr int shortfallStatus = 1;
/// Bad input or usage: nothing was done.
constexpr int badInputStatus = 2;
/// Plus the number of the signal that ended it.
constexpr int signalStatus = 128;

/// Writes to standard output, in one piece where the system takes it so; a failure is kept for
/// `statusOf`: it must not end a run.
void say(const std::string& text);
/// Standard output could not be written for this reason, an `errno`.
void keepOutputFailure(int reason);
/// Writes to standard error.
void complain(const std::string& text);
/// The same, a line each; of very many the first ones, `--json` has all.
void complainAll(const char* kind, const std::vector<Finding>& findings);

/// Runs a command; what it throws is said on standard error. When standard output could not be
/// written, success becomes `shortfallStatus`, and the reason is said; but a pipe that its reader
/// closed is not worth a word.
int statusOf(const std::function<int()>& command);

}  // namespace host
