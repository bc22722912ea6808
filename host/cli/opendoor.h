#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/base/outputpaths.h"
#include "host/cli/arguments.h"
#include "host/engine/torvex.h"
#include "host/input/machinemodel.h"
#include "host/recording/flightrecorder.h"
#include "host/server/door.h"
#include "host/server/doorplace.h"
#include "host/server/service.h"
#include "host/server/serviceoptions.h"

namespace host {

/// How clients may come in.
struct DoorOptions {
  /// Empty: by the machine's name.
  std::string socketPath;
  std::optional<TcpAddress> tcp;
  /// Empty: one is made.
  std::string tokenPath;
  std::vector<std::string> hosts;
  std::vector<std::string> origins;
  /// Where the packages are that a URDF names.
  std::vector<std::string> packageFolders;
  /// With motions that clients may play; empty for none.
  std::string motionFolder;
  /// What is too fast or beyond the limits is refused.
  bool isStrict = true;
};

void addDoor(CLI::App& command, DoorOptions& options);
/// `--serve`, and the same options, which need it.
void addServeFlag(CLI::App& command, const char* what, bool& isServing, DoorOptions& options);

/// Adds the files of the door of a machine with this name, and those that it reads: among them each
/// output that is a motion that clients may play. Throws `simulation::Error` where the door can
/// have no place.
void addFiles(const DoorOptions& options, const std::string& machineName, NamedFiles& files);

/// The door of a machine, from construction to destruction; `Torvex::run` lies in between.
class OpenDoor {
 public:
  /// The machine and its host must outlive the object. Clients replace none of the files. Throws
  /// `simulation::Error`, and `UserError` for the file of the token.
  OpenDoor(const MachineModel& machine, Torvex& torvex, const DoorOptions& options,
           const SessionOptions& session, const NamedFiles& files);

  /// What clients may have written to a file; must outlive the object. Before it is open.
  void setRing(FlightRecorder* ring) { serviceOptions_.ring = ring; }

  /// Where it is, in lines for a user, with a link for his browser.
  [[nodiscard]] std::string announcement();
  /// Lets clients in.
  void open();

 private:
  Torvex& torvex_;
  const DoorOptions options_;
  /// For browsers; empty without TCP.
  const std::string address_;
  const Access access_;
  DoorPlace place_;
  ServiceOptions serviceOptions_;
  Service service_;
  Door door_;
  std::string tokenPath_;
};

}  // namespace host
