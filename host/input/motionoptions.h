#pragma once

namespace host {

/// How motion files are read.
struct MotionOptions {
  /// Leave out joints of trajectories that the machine has no actuator for, with a note.
  bool ignoreUnknownJoints = false;
};

}  // namespace host
