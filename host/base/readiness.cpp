#include "host/base/readiness.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace host {

void tellSystemd(const char* state) noexcept {
  const char* const path = std::getenv("NOTIFY_SOCKET");
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::size_t length = path == nullptr ? 0 : std::strlen(path);
  if (length < 2 || length >= sizeof address.sun_path) {
    return;
  }
  std::memcpy(address.sun_path, path, length);
  if (path[0] == '@') {
    address.sun_path[0] = '\0';  // an abstract name
  }
  const int sender = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (sender >= 0) {
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): so the call has it
    (void)sendto(sender, state, std::strlen(state), MSG_NOSIGNAL,
                 reinterpret_cast<const sockaddr*>(&address), size);
    close(sender);
  }
}

}  // namespace host
