#pragma once

#include <string>

namespace bridge {

/// A line on standard output: what the bridge commands, and what became of it. Any thread.
void say(const std::string& text);

/// A line on standard error. Any thread.
void complain(const std::string& text);

}  // namespace bridge
