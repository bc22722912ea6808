#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "host/input/commandbatch.h"
#include "host/input/document.h"
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

/// What every request that commands may say.
struct RequestSender {
  /// The key of the commander that sends it.
  std::optional<std::string> commander;
  /// To be answered, and nothing else.
  bool isDryRun = false;
};

/// What a client asks for with one request.
struct BatchRequest : RequestSender {
  std::vector<RequestedBatch> batches;
  /// All batches are stops whose moments have come at this machine time.
  [[nodiscard]] bool isStop(std::int64_t nowMs) const;
};

/// Machine time, which is given in seconds, in milliseconds.
std::int64_t machineTime(const Document& document, const Node& node, const char* what);

/// Reads the fields "commander" and "dry_run".
RequestSender readSender(const Document& document, const Document::Fields& fields);

/// Calls `read` with the JSON of a request, `what` with these fields. Throws a `UserError` of all
/// that is wrong, each with the JSON pointer of the field as its path.
using ReadFields = std::function<void(const Document& document, const Document::Fields& fields)>;
void readRequest(const std::string& text, const std::string& what,
                 const std::set<std::string>& known, const ReadFields& read);

/// Reads the JSON of a request. Throws a `UserError` of all that is wrong, each with the JSON
/// pointer of the field as its path.
BatchRequest readBatchRequest(const std::string& text, const ActuatorNames& names);

}  // namespace host
