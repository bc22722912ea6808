#include "host/base/tokenfile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/base/textfile.h"
#include "host/base/usererror.h"
#include "simulation/framework/descriptor.h"

namespace host {

std::string readTokenFile(const std::string& path) {
  constexpr std::size_t least = 16;
  constexpr std::size_t most = 256;
  struct stat status {};
  const simulation::Descriptor file(
      open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (file.isOpen() && fstat(file.number(), &status) == 0 &&
      (status.st_uid != geteuid() || (status.st_mode & 077U) != 0)) {
    throw UserError(path, {}, "must belong to this user, and be closed to all others (chmod 600)");
  }
  std::string token = readFile(path, file, 2 * most);
  token.erase(token.find_last_not_of(" \t\r\n") + 1);
  if (token.size() < least || token.size() > most ||
      token.find_first_of(" \t\r\n,") != std::string::npos) {
    throw UserError(
        path, {},
        fmt::format("must hold a token of {} to {} characters, without spaces and commas", least,
                    most));
  }
  return token;
}

}  // namespace host
