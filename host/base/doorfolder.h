#pragma once

#include <string>

namespace host {

/// Where the sockets of this user's machines lie: in `XDG_RUNTIME_DIR`, else `/run/user/UID`, for
/// root in `/run`. It need not be there; empty where there is no such place.
std::string doorFolder();

}  // namespace host
