#include "host/cli/fleet/startmark.h"

#include <fmt/format.h>

#include "host/base/clocks.h"

namespace host {

std::string outOfStep(const Member::View& view, const StartMark* mark) {
  const std::int64_t silenceNs = bootNs() - view.aliveNs;
  if (view.isHeldUp) {
    return "machine time is paused";
  }
  if (silenceNs > mostSilentNs(view.clock)) {
    return fmt::format("it has not answered for {} ms", silenceNs / nsPerMs);
  }
  if (mark == nullptr) {
    return "";
  }
  if (view.machineZeroNs != mark->zeroNs) {
    return fmt::format("machine time was paused for {} ms",
                       (view.machineZeroNs - mark->zeroNs) / nsPerMs);
  }
  if (view.contradictions != mark->contradictions) {
    return "its clock, or that of this computer, was set or runs too fast";
  }
  return view.played.isDisturbed()           ? view.played.shortfall()
         : view.phase == Member::Phase::over ? "its motion has already ended"
                                             : "";
}

}  // namespace host
