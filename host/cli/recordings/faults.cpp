#include "host/cli/recordings/faults.h"

#include <fmt/format.h>

#include "host/base/visible.h"
#include "host/cli/output.h"
#include "host/cli/status.h"

namespace host {

void complainOfFaults(const std::string& path, const std::vector<std::string>& faults) {
  for (const std::string& fault : faults) {
    complain(visible(fmt::format("{}: warning: {}", path, fault)) + "\n");
  }
}

int readingStatus(const RecordedRun& run) {
  return run.end.isWhole && run.end.faults.empty() ? okStatus : shortfallStatus;
}

}  // namespace host
