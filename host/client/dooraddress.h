#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace host {

/// Where a machine's door is: a socket, or a port of a computer.
struct DoorAddress {
  /// Empty: by TCP.
  std::string socketPath;
  /// An IP address.
  std::string host = {};
  std::uint16_t port = 0;
  /// What TCP asks for.
  std::string token = {};

  /// The path; "ADDRESS:PORT", as URLs have it.
  [[nodiscard]] std::string text() const;
};

/// How long a client waits for a machine.
struct Patience {
  /// For the connection, and for each answer.
  int waitMs = 15'000;
  /// Once this is true it waits no longer, as when a signal comes; may be null.
  const std::atomic<bool>* abandoned = nullptr;
};

}  // namespace host
