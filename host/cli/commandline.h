#pragma once

namespace host {

/// Parses the command line and runs the subcommand. The result is the exit
/// status; what is wrong is said on standard error.
int runCommandLine(int argc, char** argv);

}  // namespace host
