#pragma once

#include <string>
#include <vector>

namespace host {

/// A file that is going to be written.
struct NamedOutput {
  std::string path;
  /// In words for a user.
  std::string what;
};

/// What a process writes and reads.
struct NamedFiles {
  std::vector<NamedOutput> outputs;
  std::vector<std::string> inputs;
};

/// Whether a path means what this process has for standard output.
bool isStandardOutput(const std::string& path);

/// Throws `UserError` when an output would overwrite an input, another output
/// or what standard output or error goes to, and when one of them bears the name of a part of a
/// file.
void checkOutputs(const std::vector<NamedOutput>& outputs, const std::vector<std::string>& inputs);

/// Throws `UserError` when this folder can neither be written to nor made.
void checkFolder(const std::string& path);

}  // namespace host
