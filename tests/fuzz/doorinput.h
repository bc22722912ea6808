#pragma once

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

#include "host/server/door.h"
#include "host/server/doorplace.h"
#include "input.h"
#include "simulation/framework/descriptor.h"
#include "tests/support/temporary.h"

/// Takes whatever comes.
class Open : public host::Handler {
 public:
  void handle(host::Request request, const Reply& reply) override {
    reply({200, request.path + request.body, "text/plain", {}});
  }
  std::unique_ptr<host::Feed> feedFor(const host::Request& request) override {
    struct Echo : host::Feed {
      std::string next() override { return std::exchange(said, {}); }
      void take(const std::string& message) override { said = message; }
      std::string said = "begins";
    };
    return request.isUpgrade ? std::make_unique<Echo>() : nullptr;
  }
  [[nodiscard]] bool isOpenToAll(const host::Request& /*head*/) const override { return true; }
  [[nodiscard]] bool isUrgent(const host::Request& /*request*/) const override { return false; }
  void connectionEnded(std::uint64_t /*connection*/) override {}
};

/// Sends `text` to a door and returns all that comes back, until the door ends the connection.
inline std::string answerTo(const std::string& text) {
  static const Temporary folder;
  static host::DoorPlace place(folder.path("door/d.sock"));
  static Open handler;
  static host::Door door(place.listen().release(), std::nullopt, {}, handler);
  static const bool isOpen = (door.open([](std::uint64_t) {}), true);
  (void)isOpen;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  place.path().copy(address.sun_path, sizeof address.sun_path - 1);
  const simulation::Descriptor client(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  require(
      connect(client.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0,
      std::string("connect: ") + std::strerror(errno));
  (void)send(client.number(), text.data(), text.size(), MSG_NOSIGNAL);
  shutdown(client.number(), SHUT_WR);
  std::string answer;
  char part[4096];
  for (ssize_t got = 0; (got = read(client.number(), part, sizeof part)) > 0;) {
    answer.append(part, static_cast<std::size_t>(got));
  }
  return answer;
}
