#pragma once

#include <string>

#include "simulation/framework/outputfile.h"

namespace host {

/// An output that a user named: one that cannot be written is bad input.
class OutputFile : public simulation::OutputFile {
 public:
  /// Throws `UserError` when the file cannot be written there.
  explicit OutputFile(const std::string& path, Present present = Present::replaced);
};

}  // namespace host
