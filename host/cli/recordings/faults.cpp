#include "host/cli/recordings/faults.h"

#include <fmt/format.h>

#include "host/base/visible.h"
#include "host/cli/output.h"
#include "host/cli/status.h"

namespace host {

int statusOf(const RecordedRun& run) {
  return run.end.isWhole && run.end.faults.empty() ? okStatus : shortfallStatus;
}

int sayFaults(const std::string& path, const RecordedRun& run) {
  for (const std::string& fault : run.end.faults) {
    complain(visible(fmt::format("{}: warning: {}", path, fault)) + "\n");
  }
  return statusOf(run);
}

}  // namespace host
