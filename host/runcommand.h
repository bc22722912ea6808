#pragma once

#include "host/commandline.h"

namespace host {

/// `torvex run`. The result is the exit status: 0 when every item was
/// delivered and every joint reached its target, 1 when not, 2 for bad input,
/// 128 and the signal's number when stopped.
int runCommand(const RunOptions& options);

}  // namespace host
