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

/// Writes to standard output; when that fails, `outputFailed` is true from then
/// on. It must not end a run.
void say(const std::string& text);
bool outputFailed();
/// Writes to standard error.
void complain(const std::string& text);
/// The same, a line each; of very many the first ones, `--json` has all.
void complainAll(const char* kind, const std::vector<Finding>& findings);

/// Runs a command; what it throws is said on standard error.
int statusOf(const std::function<int()>& command);

}  // namespace host
