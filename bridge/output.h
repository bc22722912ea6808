#pragma once

#include <string>

#include "bridge/outlet.h"

namespace bridge {

// Nobody waits for who reads them, and any thread may write them.

/// A line on standard output: what the bridge commands, and what became of it.
void say(const std::string& text);

/// A line on standard error.
void complain(const std::string& text, About about = About::bridge);

/// At the end: the lines that wait are written. False when some are stuck, as `Outlet::finish`.
bool finishOutput();

}  // namespace bridge
