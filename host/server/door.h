#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "host/server/access.h"
#include "host/server/http.h"

namespace host {

/// An address of this computer, to listen at.
struct TcpAddress {
  std::string address = "127.0.0.1";
  std::uint16_t port = 0;
};

/// Where clients come in: HTTP/1.1 and WebSockets on a Unix socket, and on TCP. One thread of
/// its own does all that concerns sockets, within `bounds`.
class Door {
 public:
  /// Takes over a listening Unix socket, and listens at the address. Throws
  /// `simulation::Error` when that cannot be had. Nobody is let in before `open`. The handler
  /// must outlive the door.
  Door(int listeningSocket, const std::optional<TcpAddress>& tcp, Access access, Handler& handler);
  /// Closes all connections; listeners are told so first, and have 300 ms to hear the rest.
  ~Door();

  Door(const Door&) = delete;
  Door& operator=(const Door&) = delete;

  /// Lets clients in. `haveRead` is called by the door's thread, see `askToRead`.
  void open(const std::function<void(std::uint64_t number)>& haveRead);

  /// Has `haveRead` called with this number once all is handled that has come in by now. Any
  /// thread; waits for nothing.
  void askToRead(std::uint64_t number);

 private:
  class Core;
  const std::unique_ptr<Core> core_;
};

}  // namespace host
