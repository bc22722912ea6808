#pragma once

#include <string>

#include "timedcommand/timedcommand.h"

/// Commands as words: a stamp, "=" and a value unless it is 0, "!" for `ignore`;
/// for example "10 20=1.5 0x7ffffff0=2!".
CommandList listOf(const std::string& text);
std::string textOf(const CommandList& commands);
