#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "host/engine/desk.h"
#include "host/server/commanderkeys.h"
#include "host/server/http.h"
#include "host/server/machineview.h"

namespace host {

/// The requests of commanders: that they come, live and go. I/O thread, save for `commanderOf`.
class Registrations {
 public:
  using Reply = Handler::Reply;

  /// The arguments must outlive the object, and the machine's threads end before it.
  Registrations(const MachineView& view, Desk& desk);

  // Each answers one request. Throw `Refused` and `UserError`.

  void enrol(const Request& request, const Reply& reply);
  void renew(const Request& request, const Reply& reply);
  void resign(const Request& request, const Reply& reply);

  /// Who has this key; `nobody` without one. Throws `Refused` when there is none. Any thread.
  [[nodiscard]] CommanderId commanderOf(const std::optional<std::string>& key) const;
  /// What renews this commander. Throws `Refused` when there is none.
  std::function<void()> renewing(const std::string& key);
  void connectionEnded(std::uint64_t connection);
  /// Of the latest commanders, also of those that have ended.
  [[nodiscard]] const std::map<CommanderId, std::string>& names() const { return names_; }

 private:
  struct Known {
    Enrolment enrolment;
    /// 0: it ends with none.
    std::uint64_t connection = 0;
    /// When it registered, in machine time.
    std::int64_t sinceMs = 0;
  };

  [[nodiscard]] Answer enrolled(const CommandAnswer& answer, const Enrolment& enrolment,
                                std::uint64_t connection, bool endsWithConnection);
  [[nodiscard]] Answer commanderAnswer(const CommandAnswer& answer);
  void forgetLost(std::int64_t timeMs);
  void forget(CommanderId commander);

  const MachineView& view_;
  Desk& desk_;
  CommanderKeys keys_;
  std::map<CommanderId, Known> known_;
  std::map<CommanderId, std::string> names_;
  /// Connections whose registrations are under way, with how many; those that have ended.
  std::map<std::uint64_t, int> enrolling_;
  std::set<std::uint64_t> gone_;
};

}  // namespace host
