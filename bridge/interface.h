#pragma once

#include <netinet/in.h>

#include <string>

namespace bridge {

/// A network interface of this computer, as it was when the object was made.
class Interface {
 public:
  /// Throws `std::runtime_error` when there is none of this name, and when it is down or has no
  /// IPv4 address.
  explicit Interface(std::string name);

  /// Whether it is still there, with that address: DDS uses both for as long as it runs.
  [[nodiscard]] bool isAsBefore() const;

  /// Closes the IP sockets that this process has to what comes by another interface, whatever
  /// address they are bound to; what comes from this computer itself may pass. Those that are bound
  /// to the interface's address send by no other one, either. Throws `std::runtime_error`.
  void confineSockets() const;

 private:
  void confine(int socket) const;

  std::string name_;
  unsigned index_;
  in_addr address_{};
};

}  // namespace bridge
