#pragma once

#include <set>
#include <string>
#include <vector>

#include "host/base/heldfolder.h"
#include "host/server/http.h"

namespace host {

/// The files that a URDF names as package://PACKAGE/PATH: DIR/PACKAGE/PATH in one of some folders.
/// Any thread.
class Meshes {
 public:
  /// `urdf` may be null. Throws `UserError` for what is no folder.
  Meshes(const std::vector<std::string>& folders, const std::string* urdf);

  /// The meshes of the URDF that are there by now, as PACKAGE/PATH.
  [[nodiscard]] std::vector<std::string> present() const;
  /// The file at PACKAGE/PATH. Throws `Refused` where there is none of at most 32 MiB.
  [[nodiscard]] Answer answer(const std::string& path) const;

 private:
  std::vector<HeldFolder> folders_;
  /// All that the URDF names.
  std::set<std::string> named_;
};

}  // namespace host
