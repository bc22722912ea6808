#pragma once

#include <sys/uio.h>

#include <array>
#include <chrono>
#include <cstddef>

#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/beast/core/buffers_prefix.hpp>

#include "host/client/dooraddress.h"
#include "simulation/framework/descriptor.h"

namespace host {

/// A connection to a door on which nothing takes longer than it may: what Boost.Beast needs of a
/// stream.
class PatientSocket {
 public:
  using Error = boost::system::error_code;

  /// Throws `NoMachine` when nobody listens there, or, at a socket, another user than this one and
  /// root; and `WaitStopped`.
  PatientSocket(const DoorAddress& address, const Patience& patience);

  /// How long all that follows may take together.
  void waitAtMost(int milliseconds);
  [[nodiscard]] int waitMs() const { return patience_.waitMs; }

  template <typename Buffers>
  std::size_t read_some(const Buffers& buffers, Error& error) {
    const auto buffer = boost::beast::buffers_front(buffers);
    return receive(buffer.data(), buffer.size(), error);
  }
  template <typename Buffers>
  std::size_t write_some(const Buffers& buffers, Error& error) {
    // A request comes in many small parts, which go out as one packet.
    std::array<iovec, 16> parts{};
    std::size_t count = 0;
    const auto end = boost::asio::buffer_sequence_end(buffers);
    for (auto at = boost::asio::buffer_sequence_begin(buffers); at != end && count < parts.size();
         ++at) {
      const boost::asio::const_buffer part(*at);
      parts[count++] = {const_cast<void*>(part.data()), part.size()};
    }
    return transmit(parts.data(), count, error);
  }

  // The same with exceptions: the concept of a stream asks for them.
  template <typename Buffers>
  std::size_t read_some(const Buffers& buffers) {
    Error error;
    const std::size_t count = read_some(buffers, error);
    return error ? throw boost::system::system_error(error) : count;
  }
  template <typename Buffers>
  std::size_t write_some(const Buffers& buffers) {
    Error error;
    const std::size_t count = write_some(buffers, error);
    return error ? throw boost::system::system_error(error) : count;
  }

 private:
  void connectToSocket(const DoorAddress& address);
  void connectToPort(const DoorAddress& address);
  std::size_t receive(void* data, std::size_t size, Error& error);
  std::size_t transmit(iovec* parts, std::size_t count, Error& error);
  bool isReady(short events, Error& error) const;
  [[nodiscard]] bool isAbandoned() const;

  const Patience patience_;
  simulation::Descriptor descriptor_;
  std::chrono::steady_clock::time_point deadline_;
  /// What had come before.
  int signal_ = 0;
};

}  // namespace host
