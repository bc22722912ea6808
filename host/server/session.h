#pragma once

#include <boost/asio/generic/stream_protocol.hpp>
#include <boost/asio/io_context.hpp>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <utility>

#include "host/server/access.h"
#include "host/server/http.h"

namespace host {

/// Of both kinds of sockets, so that all is compiled once.
using Stream = boost::asio::generic::stream_protocol::socket;

/// One connection. I/O thread.
class Session {
 public:
  Session() = default;
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  virtual ~Session() = default;

  [[nodiscard]] virtual bool isBySocket() const = 0;
  /// Beyond the bound of connections: only what is urgent.
  virtual void crowd() = 0;
  virtual void awaitRequest() = 0;
  [[nodiscard]] virtual bool isFed() const = 0;
  /// Sends what the feed has, unless something is on its way.
  virtual void pump() = 0;
  /// The door closes: a listener hears the rest, and that it is the last.
  virtual void conclude() = 0;
  virtual void end() = 0;
};

/// What all sessions of a door share. I/O thread.
struct DoorState : std::enable_shared_from_this<DoorState> {
  boost::asio::io_context io{1};
  Access access;
  Handler& handler;
  std::map<std::uint64_t, std::shared_ptr<Session>> sessions;
  std::size_t waitingRequests = 0;
  /// The door closes when no session is left.
  bool isClosing = false;

  DoorState(Access access_, Handler& handler_) : access(std::move(access_)), handler(handler_) {}
};

/// The door must outlive the session.
std::shared_ptr<Session> makeSession(DoorState& door, Stream socket, std::uint64_t number,
                                     bool isBySocket);

}  // namespace host
