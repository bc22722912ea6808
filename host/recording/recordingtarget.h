#pragma once

#include <vector>

#include "host/motion/event.h"
#include "host/recording/recordinghead.h"
#include "host/recording/recordingtopics.h"

namespace host {

/// Where a recorder's thread puts what it takes from the queues. That thread alone, save for
/// `commit`.
class RecordingTarget {
 public:
  RecordingTarget() = default;
  RecordingTarget(const RecordingTarget&) = delete;
  RecordingTarget& operator=(const RecordingTarget&) = delete;
  virtual ~RecordingTarget() = default;

  /// Once, before all others. The head outlives what is done with it. Returns what takes all that
  /// is no row.
  virtual RecordingTopics& begin(const RecordingHead& head) = 0;
  virtual void addRow(const std::vector<double>& row) = 0;
  /// An event that the topics have taken.
  virtual void see(const Event& /*event*/) {}
  /// Nothing is queued at the moment.
  virtual void rest() {}
  /// Nothing more comes.
  virtual void finish() = 0;
  /// After `finish`: what was written is to stay.
  virtual void commit() {}
};

}  // namespace host
