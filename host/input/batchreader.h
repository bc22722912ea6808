#pragma once

#include "host/input/pointreader.h"

namespace host {

/// Where the trajectory of a batch comes from. Throws `UserError` and `AlreadyReported`.
class TrajectorySource {
 public:
  TrajectorySource() = default;
  TrajectorySource(const TrajectorySource&) = delete;
  TrajectorySource& operator=(const TrajectorySource&) = delete;
  virtual ~TrajectorySource() = default;

  /// Below `node`, in wrappers or without.
  virtual void readTrajectoryAt(const PointReader& reader, const Node& node,
                                CommandBatch& batch) = 0;
  /// In the file that `node` names, relative to the file of `document`.
  virtual void readTrajectoryFile(const Document& document, const Node& node,
                                  CommandBatch& batch) = 0;
};

/// Reads one command batch of a motion file: when, how, and its points. Throws `UserError`.
CommandBatch readBatch(const PointReader& reader, const Node& node, TrajectorySource& trajectories);

}  // namespace host
