#pragma once

#include <string>
#include <vector>

#include "host/input/document.h"

namespace host {

/// What stands in a motion file below the wrappers of messages, parameters and tools.
struct MotionContent {
  enum class Kind { trajectory, batches, namedMotions };

  Node node;
  Kind kind = Kind::trajectory;
  /// Keys beside the way to it, which nothing is made of.
  std::vector<std::string> ignored;
};

/// Follows the wrappers down to a trajectory, command batches or named motions, nested as they
/// occur: `goal`, `trajectory`, `joint_trajectory`, `play_motion`, `ros__parameters`, and the
/// names of nodes. What has none of these is taken for a trajectory. Throws `UserError` when
/// there is more than one to follow.
MotionContent unwrapMotion(const Document& document, const Node& node);

}  // namespace host
