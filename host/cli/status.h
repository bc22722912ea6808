#pragma once

#include <functional>

namespace host {

constexpr int okStatus = 0;
/// Not all was as it should be; it was said what.
constexpr int shortfallStatus = 1;
/// Bad input or usage: nothing was done.
constexpr int badInputStatus = 2;
/// Plus the number of the signal that ended it.
constexpr int signalStatus = 128;

/// Runs a command; what it throws is said on standard error. When standard output could not be
/// written, success becomes `shortfallStatus`, and the reason is said; but a pipe that its reader
/// closed is not worth a word.
int statusOf(const std::function<int()>& command);

}  // namespace host
