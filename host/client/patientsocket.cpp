#include "host/client/patientsocket.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "host/base/stopsignal.h"
#include "host/client/doorclient.h"

namespace host {
namespace {

[[noreturn]] void failToConnect(const DoorAddress& address, const std::string& why) {
  throw NoMachine(fmt::format("no machine answers at {}: {}; start one with 'torvex serve'",
                              address.text(), why));
}

PatientSocket::Error systemError() {
  return {errno, boost::system::system_category()};
}

/// Of either family.
struct Endpoint {
  sockaddr_storage storage{};
  socklen_t size = 0;
};

Endpoint endpointOf(const DoorAddress& address) {
  Endpoint endpoint;
  sockaddr_in four{};
  sockaddr_in6 six{};
  if (inet_pton(AF_INET, address.host.c_str(), &four.sin_addr) == 1) {
    four.sin_family = AF_INET;
    four.sin_port = htons(address.port);
    endpoint.size = sizeof four;
    std::memcpy(&endpoint.storage, &four, sizeof four);
  } else if (inet_pton(AF_INET6, address.host.c_str(), &six.sin6_addr) == 1) {
    six.sin6_family = AF_INET6;
    six.sin6_port = htons(address.port);
    endpoint.size = sizeof six;
    std::memcpy(&endpoint.storage, &six, sizeof six);
  } else {
    failToConnect(address, "this is not an IP address");
  }
  return endpoint;
}

std::size_t transferred(ssize_t count, PatientSocket::Error whenDone, PatientSocket::Error& error) {
  error = count < 0 ? systemError() : whenDone;
  return count < 0 ? 0 : static_cast<std::size_t>(count);
}

}  // namespace

PatientSocket::PatientSocket(const DoorAddress& address, const Patience& patience)
    : patience_(patience) {
  waitAtMost(patience.waitMs);
  address.socketPath.empty() ? connectToPort(address) : connectToSocket(address);
}

void PatientSocket::connectToSocket(const DoorAddress& address) {
  const std::string& path = address.socketPath;
  descriptor_ =
      simulation::Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  sockaddr_un place{};
  place.sun_family = AF_UNIX;
  if (path.size() >= sizeof(place.sun_path)) {
    failToConnect(address, "the path is too long for a socket");
  }
  path.copy(place.sun_path, path.size());
  if (descriptor_.number() < 0 ||
      connect(descriptor_.number(), reinterpret_cast<const sockaddr*>(&place), sizeof place) != 0) {
    failToConnect(address, std::strerror(errno));
  }
  ucred peer{};
  socklen_t size = sizeof peer;
  if (getsockopt(descriptor_.number(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 ||
      (peer.uid != geteuid() && peer.uid != 0)) {
    failToConnect(address, fmt::format("it belongs to user {}", peer.uid));
  }
}

void PatientSocket::connectToPort(const DoorAddress& address) {
  const Endpoint endpoint = endpointOf(address);
  descriptor_ = simulation::Descriptor(
      socket(endpoint.storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (descriptor_.number() < 0) {
    failToConnect(address, std::strerror(errno));
  }
  const int on = 1;
  (void)setsockopt(descriptor_.number(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  if (connect(descriptor_.number(), reinterpret_cast<const sockaddr*>(&endpoint.storage),
              endpoint.size) == 0) {
    return;
  }
  Error error;
  if (errno != EINPROGRESS) {
    failToConnect(address, std::strerror(errno));
  }
  if (!isReady(POLLOUT, error)) {
    error == boost::asio::error::interrupted
        ? throw WaitStopped()
        : failToConnect(address, fmt::format("not within {} ms", patience_.waitMs));
  }
  int fault = 0;
  socklen_t size = sizeof fault;
  if (getsockopt(descriptor_.number(), SOL_SOCKET, SO_ERROR, &fault, &size) != 0 || fault != 0) {
    failToConnect(address, std::strerror(fault));
  }
}

void PatientSocket::waitAtMost(int milliseconds) {
  deadline_ = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
  signal_ = StopSignal::received();
}

std::size_t PatientSocket::receive(void* data, std::size_t size, Error& error) {
  if (!isReady(POLLIN, error)) {
    return 0;
  }
  const ssize_t count = recv(descriptor_.number(), data, size, 0);
  return transferred(count, count == 0 ? Error(boost::asio::error::eof) : Error(), error);
}

std::size_t PatientSocket::transmit(iovec* parts, std::size_t count, Error& error) {
  if (!isReady(POLLOUT, error)) {
    return 0;
  }
  msghdr message{};
  message.msg_iov = parts;
  message.msg_iovlen = count;
  return transferred(sendmsg(descriptor_.number(), &message, MSG_NOSIGNAL), Error(), error);
}

bool PatientSocket::isAbandoned() const {
  return StopSignal::received() != signal_ || StopSignal::isRepeated() ||
         (patience_.abandoned != nullptr && *patience_.abandoned);
}

/// In short turns: a signal may come just before one.
bool PatientSocket::isReady(short events, Error& error) const {
  constexpr std::chrono::milliseconds turn(50);
  pollfd waited{descriptor_.number(), events, 0};
  error = {};
  do {
    const auto left = deadline_ - std::chrono::steady_clock::now();
    // Rounded up: with less than a millisecond left it would ask again and again.
    const auto leftMs = std::chrono::ceil<std::chrono::milliseconds>(left);
    const int ready =
        poll(&waited, 1,
             static_cast<int>(std::clamp(leftMs, std::chrono::milliseconds(0), turn).count()));
    if (ready > 0) {
      return true;
    }
    if (isAbandoned()) {
      error = boost::asio::error::interrupted;
      return false;
    }
  } while (std::chrono::steady_clock::now() < deadline_);
  error = boost::asio::error::timed_out;
  return false;
}

}  // namespace host
