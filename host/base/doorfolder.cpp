#include "host/base/doorfolder.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace host {
namespace {

std::string runtimeFolder() {
  const char* const given = std::getenv("XDG_RUNTIME_DIR");
  if (given != nullptr && given[0] == '/') {
    return given;
  }
  std::error_code ignored;
  std::string usual = "/run/user/" + std::to_string(geteuid());
  if (std::filesystem::is_directory(usual, ignored)) {
    return usual;
  }
  return geteuid() == 0 ? "/run" : "";
}

}  // namespace

std::string doorFolder() {
  const std::string folder = runtimeFolder();
  return folder.empty() ? "" : folder + "/torvex";
}

}  // namespace host
