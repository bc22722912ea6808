#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "host/engine/sessionoptions.h"
#include "host/input/motionoptions.h"
#include "host/motion/schedule.h"
#include "host/results/plot/panel.h"
#include "host/results/preferenceexport.h"

namespace host {

/// What is recorded of a machine.
struct RecordOptions {
  /// Empty: no recording.
  std::string path;
  /// How much a ring keeps; 0: no ring.
  double ringSeconds = 0.0;
  /// Where its files go; empty: the present folder.
  std::string ringFolder;
  /// None: as many as usual.
  std::optional<std::size_t> ringFiles;
  /// The keys of further attributes, as in the shell; empty: none.
  std::string attributes;
};

/// What `torvex run` was asked to do.
struct RunOptions {
  std::string machinePath;
  std::vector<std::string> motionPaths;
  MotionOptions motions;
  SessionOptions session;
  Timing timing;
  /// What is a warning otherwise is an error, before anything moves where it can be told.
  bool strict = false;
  /// Empty: no trace.
  std::string tracePath;
  RecordOptions recording;
  /// Empty: no picture.
  std::string plotPath;
  /// Its joints are those of the trace as well.
  PictureOptions picture;
  /// What is exported at the end.
  std::vector<PreferenceExport> exports;
  /// The outcome as a JSON object instead of tables.
  bool json = false;
};

}  // namespace host
