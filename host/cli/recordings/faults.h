#pragma once

#include <string>
#include <vector>

#include "host/recording/recordedrun.h"

namespace host {

/// Says what is wrong with the recording at this path.
void complainOfFaults(const std::string& path, const std::vector<std::string>& faults);

/// The status to exit with: whether all of the recording could be read.
int readingStatus(const RecordedRun& run);

}  // namespace host
