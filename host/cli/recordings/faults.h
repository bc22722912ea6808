#pragma once

#include <string>

#include "host/recording/recordedrun.h"

namespace host {

/// Says what of a recording could not be read; the result is the status to exit with.
int sayFaults(const std::string& path, const RecordedRun& run);

}  // namespace host
