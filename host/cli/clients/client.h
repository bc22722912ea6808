#pragma once

#include <functional>
#include <string>
#include <vector>

#include "host/base/values.h"
#include "host/cli/arguments.h"
#include "host/client/answer.h"

namespace host {

/// What the subcommands say of their exit status that are clients of a running machine.
extern const char clientStatusText[];

/// What a user typed for the field of a request with this path; empty where it is clear.
using FieldName = std::function<std::string(const std::string& path)>;

/// Runs what speaks to a machine; when it refuses or does not answer, that is said, and the
/// result is the status to exit with.
int clientStatus(const std::function<int()>& command, const FieldName& nameOf = {});

/// The argument that the path has the number of, behind `prefix`; empty where there is none.
std::string argumentAt(const std::string& path, const std::string& prefix,
                       const std::vector<std::string>& arguments);

/// The key of an actuator's value where its bare name is given; anything else as it is.
std::string keyGiven(const std::string& name);

/// Which machine is meant: see `doorOf`.
void addMachineName(CLI::App& command, std::string& machine);

/// What the machine notes of the motions of a request, such as joints that it leaves out.
std::vector<std::string> notesIn(const Json& answer);

/// What was taken, in words for a user; a line for each axis of which something was changed, and
/// for each note.
std::string takenText(const Json& answer);

}  // namespace host
