#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/input/commandbatch.h"
#include "host/input/pointreader.h"

namespace host {

/// A batch as a client sends it: its times count from machine time, or from when it is taken.
struct RequestedBatch {
  /// Without moment and origin.
  CommandBatch commands;
  /// Machine time of the hand-over, in milliseconds; none: now.
  std::optional<std::int64_t> atMs;
  /// Machine time that the times of its points count from; none: now.
  std::optional<std::int64_t> fromMs;
};

/// What a client asks for with one request.
struct BatchRequest {
  /// The commander that sends it.
  std::optional<std::uint32_t> commander;
  /// To be answered, and nothing else.
  bool isDryRun = false;
  std::vector<RequestedBatch> batches;
  /// No batch has points.
  [[nodiscard]] bool isStop() const;
};

/// Reads the JSON of a request. Throws a `UserError` of all that is wrong, each with the JSON
/// pointer of the field as its path.
BatchRequest readBatchRequest(const std::string& text, const ActuatorNames& names);

}  // namespace host
