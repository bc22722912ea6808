#pragma once

#include <string>
#include <vector>

#include "host/base/outputpaths.h"
#include "host/engine/guard.h"
#include "host/recording/flightrecorder.h"

namespace host {

/// What the service of a machine is given beside it.
struct ServiceOptions {
  /// What is too fast or beyond the limits is refused.
  bool isStrict = true;
  GuardMode guard = GuardMode::hold;
  std::string poolName;
  /// Where exports go.
  std::string preferenceDirectory;
  /// Where browsers find the door; empty where they do not.
  std::string address;
  /// What lets them in: NAME=VALUE.
  std::string cookie;
  /// Where the packages are that a URDF names.
  std::vector<std::string> packageFolders;
  /// With motions that clients may play; empty for none.
  std::string motionFolder;
  /// No export replaces them.
  NamedFiles files;
  /// What clients may have written to a file; null for none.
  FlightRecorder* ring = nullptr;
};

}  // namespace host
