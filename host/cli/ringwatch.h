#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "host/engine/torvex.h"
#include "host/recording/flightrecorder.h"
#include "host/results/outcome.h"

namespace host {

/// Sees to the ring of a run while it goes on, on the main thread: has it written when a
/// `UserSignal` came, and tells what became of its files.
class RingWatch {
 public:
  /// `ring` may be null: then the signal is answered that there is none. `saysFiles`: at once, on
  /// the standard streams, too.
  RingWatch(Torvex& torvex, FlightRecorder* ring, bool saysFiles)
      : torvex_(torvex), ring_(ring), saysFiles_(saysFiles) {}

  /// What came since the last time. Takes no time to speak of: several times a second, and once
  /// the ring is finished.
  void look();

 private:
  void tell(const RingFiles::File& file);

  Torvex& torvex_;
  FlightRecorder* const ring_;
  const bool saysFiles_;
  std::size_t told_ = 0;
};

/// Warnings of a ring in the end: files that could not be written, and requests that were not
/// granted.
std::vector<Finding> ringFaults(const RingFiles& files);
std::vector<Finding> ringLeftOut(const RingFiles& files);
/// The paths of the files that are there.
std::vector<std::string> ringPaths(const RingFiles& files);

}  // namespace host
