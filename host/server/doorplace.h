#pragma once

#include <string>

#include "simulation/framework/descriptor.h"

namespace host {

/// Where the socket of a machine of this name is, by default: torvex/NAME.sock in
/// XDG_RUNTIME_DIR, else in /run/user/UID, for root in /run. Throws `simulation::Error` when
/// there is no such folder, or the name has other characters than letters, digits, ".", "_"
/// and "-".
std::string defaultDoorPath(const std::string& machineName);

/// The place of a machine's door in the file system, for as long as the object lives: the socket,
/// the lock that proves that its process lives, and the token.
///
/// All are reached through the folder, which is held open: nobody else may write to it, and
/// no symbolic link in it is followed.
class DoorPlace {
 public:
  /// "NAME.sock" in a folder, which is made when it is missing. Takes the lock, and removes the
  /// socket of a process that was killed, but no file that is not a door's. Throws
  /// `simulation::Error` when a living process has the lock, when folder or socket belong to
  /// somebody else, and when others may write to it.
  explicit DoorPlace(const std::string& path);
  /// Removes what it made.
  ~DoorPlace();

  DoorPlace(const DoorPlace&) = delete;
  DoorPlace& operator=(const DoorPlace&) = delete;

  /// A listening socket, this user's alone. Once. Throws `simulation::Error`.
  simulation::Descriptor listen();
  /// Writes NAME.token, this user's alone, and returns its path. Throws `simulation::Error`, also
  /// where a file of this name lies that no door has written.
  std::string writeToken(const std::string& token);

  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  void openFolder();
  void takeLock();
  void removeLeftover() const;
  [[noreturn]] void fail(const std::string& name, const std::string& what) const;
  [[nodiscard]] std::string beside(const char* ending) const { return stem_ + ending; }

  const std::string path_;
  /// Of the folder, as it was given.
  std::string folderPath_;
  /// The name without ".sock".
  std::string stem_;
  simulation::Descriptor folder_;
  simulation::Descriptor lock_;
  bool hasSocket_ = false;
  bool hasToken_ = false;
  /// A door that was killed left one here.
  bool hadToken_ = false;
};

}  // namespace host
