#pragma once

namespace host {

/// Tells systemd, where it started this process and asked for it, that "READY=1" or
/// "STOPPING=1": one datagram. Does nothing where nobody asked; waits for nothing.
void tellSystemd(const char* state) noexcept;

}  // namespace host
