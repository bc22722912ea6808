#pragma once

#include <string>

#include "host/recording/recordedrun.h"

namespace host {

/// The status to exit with: whether all of the recording could be read.
int statusOf(const RecordedRun& run);
/// Says what could not be read. Returns that status.
int sayFaults(const std::string& path, const RecordedRun& run);

}  // namespace host
