#include "host/server/registrations.h"

#include <nlohmann/json.hpp>

#include "host/server/commandjson.h"
#include "host/server/controlreader.h"
#include "host/server/query.h"
#include "host/server/refused.h"

namespace host {
namespace {

/// The key in /v1/commanders/KEY...
std::string keyIn(const Request& request) {
  const std::size_t begin = std::string("/v1/commanders/").size();
  return request.path.substr(begin, request.path.find('/', begin) - begin);
}

Refused unknownCommander(const char* path) {
  return Refused({404, "unknown", "there is no such commander, or it has ended", path});
}

}  // namespace

Registrations::Registrations(const MachineView& view, Desk& desk) : view_(view), desk_(desk) {
  for (const CommanderState& commander : desk_.state().commanders) {
    names_[commander.id] = commander.enrolment.name;
  }
}

void Registrations::enrol(const Request& request, const Reply& reply) {
  const Query query(request, {});
  requireJson(request);
  const Registration wanted = readRegistration(request.body, view_.actuatorNames());
  ++enrolling_[request.connection];
  desk_.enrol(wanted.enrolment,
              [this, reply, wanted, connection = request.connection](const CommandAnswer& answer) {
                reply.later([this, answer, wanted, connection] {
                  return enrolled(answer, wanted.enrolment, connection, wanted.endsWithConnection);
                });
              });
}

Answer Registrations::enrolled(const CommandAnswer& answer, const Enrolment& enrolment,
                               std::uint64_t connection, bool endsWithConnection) {
  if (--enrolling_[connection] == 0) {
    enrolling_.erase(connection);
  }
  const bool isGone = gone_.count(connection) != 0;
  if (enrolling_.count(connection) == 0) {
    gone_.erase(connection);
  }
  if (!answer.isDone()) {
    return denialAnswer(view_.machine(), answer.denial, "/axes");
  }
  constexpr std::size_t mostNames = 10'000;
  names_[answer.commander] = enrolment.name;
  if (names_.size() > mostNames) {
    names_.erase(names_.begin());
  }
  Json told = commanderJson(view_.machine(), answer.commander, enrolment);
  if (isGone && endsWithConnection) {
    desk_.disconnect(answer.commander);
  } else {
    forgetLost(answer.timeMs);
    known_[answer.commander] = {enrolment, endsWithConnection ? connection : 0, answer.timeMs};
    told["key"] = keys_.give(answer.commander);
  }
  return answerOf(told, 201);
}

void Registrations::renew(const Request& request, const Reply& reply) {
  const Query query(request, {});
  const std::optional<std::int64_t> leaseMs = readRenewal(request.body);
  desk_.renew(keys_.find(keyIn(request)), leaseMs,
              [this, reply, leaseMs](const CommandAnswer& answer) {
                reply.later([this, answer, leaseMs] {
                  if (answer.isDone() && leaseMs) {
                    known_[answer.commander].enrolment.leaseMs = leaseMs;
                  }
                  return commanderAnswer(answer);
                });
              });
}

void Registrations::resign(const Request& request, const Reply& reply) {
  const Query query(request, {});
  desk_.resign(keys_.find(keyIn(request)), [this, reply](const CommandAnswer& answer) {
    reply.later([this, answer] {
      Answer told = commanderAnswer(answer);
      forget(answer.commander);
      return told;
    });
  });
}

Answer Registrations::commanderAnswer(const CommandAnswer& answer) {
  if (!answer.isDone()) {
    return denialAnswer(view_.machine(), answer.denial, "");
  }
  return answerOf(
      commanderJson(view_.machine(), answer.commander, known_[answer.commander].enrolment));
}

CommanderId Registrations::commanderOf(const std::optional<std::string>& key) const {
  if (!key) {
    return nobody;
  }
  const CommanderId id = keys_.find(*key);
  if (id == nobody) {
    throw unknownCommander("/commander");
  }
  return id;
}

std::function<void()> Registrations::renewing(const std::string& key) {
  const CommanderId id = keys_.find(key);
  if (id == nobody) {
    throw unknownCommander("?commander");
  }
  return [this, id] { desk_.renew(id, {}, {}); };
}

void Registrations::forgetLost(std::int64_t timeMs) {
  // By then the state that listeners see has those who were there.
  constexpr std::int64_t seenWithinMs = 1000;
  std::set<CommanderId> living;
  for (const CommanderState& commander : desk_.state().commanders) {
    living.insert(commander.id);
  }
  for (auto known = known_.begin(); known != known_.end();) {
    const auto& [id, commander] = *known++;
    if (living.count(id) == 0 && timeMs > commander.sinceMs + seenWithinMs) {
      forget(id);
    }
  }
}

void Registrations::connectionEnded(std::uint64_t connection) {
  if (enrolling_.count(connection) != 0) {
    gone_.insert(connection);
  }
  for (auto known = known_.begin(); known != known_.end();) {
    const auto& [id, commander] = *known++;
    if (commander.connection == connection) {
      desk_.disconnect(id);
      forget(id);
    }
  }
}

void Registrations::forget(CommanderId commander) {
  keys_.forget(commander);
  known_.erase(commander);
}

}  // namespace host
