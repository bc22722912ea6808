#pragma once

#include <cstdint>
#include <string>

#include "host/cli/fleet/clockfilter.h"
#include "host/cli/fleet/commonstart.h"
#include "host/client/doorclient.h"

namespace host {

/// What repeated exchanges tell of one machine's clock. The fleet's clock is `bootNs` of this
/// computer.
class ClockWatch {
 public:
  /// One exchange. Throws as `DoorClient::get`, and `NoMachine` where no clock is told.
  void ask(DoorClient& door);
  /// Some exchanges, for as long as they may take together: the first one always.
  void askOften(DoorClient& door);

  // After the first exchange.

  [[nodiscard]] ClockOffset offset() const;
  [[nodiscard]] FleetClock clock() const;
  /// Machine time of the latest cycle that was told.
  [[nodiscard]] std::int64_t machineMs() const { return machineMs_; }
  /// Where machine time is 0 on the machine's own clock: another one after it stood.
  [[nodiscard]] std::int64_t machineZeroNs() const { return machineZeroNs_; }
  /// Its latest cycle is so long ago that machine time does not go on.
  [[nodiscard]] bool isHeldUp() const { return isHeldUp_; }
  /// How many cycles were passed over so far.
  [[nodiscard]] std::int64_t overruns() const { return overruns_; }
  /// How often an exchange contradicted those before it.
  [[nodiscard]] int contradictions() const { return contradictions_; }
  /// When the latest answer was asked for.
  [[nodiscard]] std::int64_t askedNs() const { return askedNs_; }

 private:
  ClockFilter filter_;
  std::string instance_;
  std::int64_t machineMs_ = 0;
  std::int64_t machineZeroNs_ = 0;
  std::int64_t cycleMs_ = 1;
  std::int64_t askedNs_ = 0;
  std::int64_t overruns_ = 0;
  int contradictions_ = 0;
  bool isHeldUp_ = false;
};

}  // namespace host
