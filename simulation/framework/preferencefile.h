#pragma once

#include <string>

#include "platform/zr/zrvalue.h"

namespace simulation {

/// Writes a tree as XML to a file with this name in a directory, which is created when it is
/// missing. The file is replaced as a whole. Throws `ZR::ZRException`, with the path, when the name
/// leads out of the directory or writing fails; the file then stays as it was.
void writePreferenceFile(const std::string& directory, const std::string& fileName,
                         const ZR::ZRValue& tree);

}  // namespace simulation
