#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>

#include "host/base/values.h"
#include "host/engine/journal.h"
#include "host/input/machinemodel.h"

namespace host {

/// Makes entries of these messages again, whoever wrote them: an engine can take what comes out.
class JournalParser {
 public:
  /// The machine must outlive the object.
  explicit JournalParser(const MachineModel& machine) : machine_(machine) {}

  /// The entry that ends with this message; none where more of it is to come. Throws
  /// `RecordingFault`.
  std::optional<JournalEntry> take(const Json& message);

 private:
  void takePoints(const Json& message);
  [[nodiscard]] JournalEntry batchFrom(const Json& message);
  void checkOrder(const JournalEntry& entry);

  const MachineModel& machine_;
  /// The latest batch, whose points may still come, and how many of them.
  JournalEntry batch_;
  std::shared_ptr<CommandBatch> commands_;
  std::size_t points_ = 0;
  /// Of the latest batch, or of what took its points.
  std::int64_t latestMs_ = std::numeric_limits<std::int64_t>::min();
};

}  // namespace host
