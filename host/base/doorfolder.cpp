#include "host/base/doorfolder.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace host {

std::string doorFolder() {
  const char* const runtime = std::getenv("XDG_RUNTIME_DIR");
  if (runtime != nullptr && *runtime == '/') {
    return std::string(runtime) + "/torvex";
  }
  const uid_t user = getuid();
  const std::string folder = user == 0 ? "/run" : "/run/user/" + std::to_string(user);
  std::error_code ignored;
  return std::filesystem::is_directory(folder, ignored) ? folder + "/torvex" : std::string();
}

}  // namespace host
