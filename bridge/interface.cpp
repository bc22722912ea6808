#include "bridge/interface.h"

#include <fmt/format.h>
#include <ifaddrs.h>
#include <linux/filter.h>
#include <net/if.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

namespace bridge {
namespace {

/// Its IPv4 addresses. Throws `std::runtime_error`.
std::vector<in_addr> addressesOf(const std::string& interface) {
  ifaddrs* found = nullptr;
  if (getifaddrs(&found) != 0) {
    throw std::runtime_error("the network interfaces cannot be listed");
  }
  const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> all(found, freeifaddrs);
  std::vector<in_addr> addresses;
  for (const ifaddrs* one = found; one != nullptr; one = one->ifa_next) {
    if (one->ifa_name == interface && one->ifa_addr != nullptr &&
        one->ifa_addr->sa_family == AF_INET && (one->ifa_flags & IFF_UP) != 0) {
      sockaddr_in address{};
      std::memcpy(&address, one->ifa_addr, sizeof address);
      addresses.push_back(address.sin_addr);
    }
  }
  return addresses;
}

void setOption(int socket, int option, const void* value, socklen_t size) {
  if (setsockopt(socket, SOL_SOCKET, option, value, size) != 0) {
    throw std::runtime_error(
        fmt::format("a socket cannot be kept to the network interface: {}", std::strerror(errno)));
  }
}

}  // namespace

Interface::Interface(std::string name)
    : name_(std::move(name)), index_(if_nametoindex(name_.c_str())) {
  const std::vector<in_addr> addresses = addressesOf(name_);
  if (index_ == 0 || addresses.empty()) {
    throw std::runtime_error(fmt::format(
        "the network interface {} is not there, is down, or has no IPv4 address", name_));
  }
  address_ = addresses.front();
}

bool Interface::isAsBefore() const {
  if (if_nametoindex(name_.c_str()) != index_) {
    return false;
  }
  for (const in_addr address : addressesOf(name_)) {
    if (address.s_addr == address_.s_addr) {
      return true;
    }
  }
  return false;
}

void Interface::confineSockets() const {
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    confine(std::stoi(entry.path().filename()));
  }
}

void Interface::confine(int socket) const {
  sockaddr_storage bound{};
  socklen_t size = sizeof bound;
  if (getsockname(socket, reinterpret_cast<sockaddr*>(&bound), &size) != 0 ||
      (bound.ss_family != AF_INET && bound.ss_family != AF_INET6)) {
    return;
  }
  // Which interface a packet came by; that, or loopback: all of it, or none.
  constexpr auto whence = static_cast<std::uint32_t>(SKF_AD_OFF + SKF_AD_IFINDEX);
  std::array<sock_filter, 5> filter = {{{BPF_LD | BPF_W | BPF_ABS, 0, 0, whence},
                                        {BPF_JMP | BPF_JEQ | BPF_K, 1, 0, index_},
                                        {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, if_nametoindex("lo")},
                                        {BPF_RET | BPF_K, 0, 0, 0xFFFFFFFF},
                                        {BPF_RET | BPF_K, 0, 0, 0}}};
  const sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
  setOption(socket, SO_ATTACH_FILTER, &program, sizeof program);
  if (reinterpret_cast<const sockaddr_in&>(bound).sin_addr.s_addr == address_.s_addr) {
    setOption(socket, SO_BINDTODEVICE, name_.c_str(), static_cast<socklen_t>(name_.size()));
  }
}

}  // namespace bridge
