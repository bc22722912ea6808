#pragma once

#include "host/input/pointreader.h"

namespace host {

/// What a batch in a file has otherwise than one in a request. Throws `UserError` and
/// `AlreadyReported`.
class BatchSource {
 public:
  BatchSource() = default;
  BatchSource(const BatchSource&) = delete;
  BatchSource& operator=(const BatchSource&) = delete;
  virtual ~BatchSource() = default;

  /// When it is handed over, and what its times count from.
  virtual void readMoment(const Document& document, const Document::Fields& fields,
                          const Node& node, CommandBatch& batch) = 0;
  /// Below `node`, in wrappers or without.
  virtual void readTrajectoryAt(const PointReader& reader, const Node& node,
                                CommandBatch& batch) = 0;
  /// In the file that `node` names, relative to the file of `document`.
  virtual void readTrajectoryFile(const Document& document, const Node& node,
                                  CommandBatch& batch) = 0;
};

/// Reads one command batch of a motion file: when, how, and its points. Throws `UserError`.
CommandBatch readBatch(const PointReader& reader, const Node& node, BatchSource& source);

}  // namespace host
