#include "host/server/commands.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <nlohmann/json.hpp>
#include <utility>

#include "host/base/clocks.h"
#include "host/input/motionfile.h"
#include "host/motion/plan.h"
#include "host/server/commandjson.h"
#include "host/server/controlreader.h"
#include "host/server/motionrequest.h"
#include "host/server/preview.h"
#include "host/server/query.h"
#include "host/server/refused.h"

namespace host {
namespace {

/// Longer ones take longer to read than others should wait.
constexpr std::size_t shortBody = std::size_t{16} * 1024;

ScheduledBatch scheduled(const RequestedBatch& batch) {
  ScheduledBatch scheduled;
  // What the answer keeps owns it.
  scheduled.commands = {std::shared_ptr<const void>(), &batch.commands};
  scheduled.momentMs = batch.atMs;
  scheduled.originMs = batch.fromMs.value_or(0);
  scheduled.isRelative = !batch.fromMs;
  scheduled.interpolation = batch.commands.interpolation.value_or(Interpolation::message);
  return scheduled;
}

/// The key in /v1/commanders/KEY...
std::string keyIn(const Request& request) {
  const std::size_t begin = std::string("/v1/commanders/").size();
  return request.path.substr(begin, request.path.find('/', begin) - begin);
}

Refused unknownCommander(const char* path) {
  return Refused({404, "unknown", "there is no such commander, or it has ended", path});
}

}  // namespace

Commands::Commands(const MachineView& view, Torvex& torvex, bool isStrict,
                   const MotionFolder* motions)
    : view_(view), torvex_(torvex), isStrict_(isStrict), motions_(motions), names_(view.machine()) {
  for (const CommanderState& commander : desk().state().commanders) {
    commanderNames_[commander.id] = commander.enrolment.name;
  }
}

void Commands::readThen(const Request& request, const Reply& reply, const Read& read) {
  if (request.body.size() > shortBody) {
    readLater(reader_, request, reply, read);
    return;
  }
  requireJson(request);
  const Query query(request, {});
  read(request.body, stops_.ticket());
}

void Commands::readLater(Worker& worker, const Request& request, const Reply& reply,
                         const Read& read) {
  requireJson(request);
  const Query query(request, {});
  reply.postpone();
  const bool hasRoom = worker.add([body = request.body, read, reply, ticket = stops_.ticket()] {
    answering(reply, [&] { read(body, ticket); });
  });
  if (!hasRoom) {
    throw Refused({503, "busy", "too many requests wait for their turn"});
  }
}

void Commands::batches(const Request& request, const Reply& reply) {
  readThen(request, reply, [this, reply](const std::string& body, std::uint64_t ticket) {
    sendBatches(body, ticket, reply);
  });
}

void Commands::motions(const Request& request, const Reply& reply) {
  // This chooses a thread and no more: only previews take seconds.
  Worker& worker = request.body.find("\"dry_run\"") == std::string::npos ? reader_ : previewer_;
  readLater(worker, request, reply, [this, reply](const std::string& body, std::uint64_t ticket) {
    sendMotions(body, ticket, reply);
  });
}

void Commands::sendBatches(const std::string& body, std::uint64_t ticket, const Reply& reply) {
  const auto read = std::make_shared<BatchRequest>(readBatchRequest(body, names_));
  const CommanderId commander = commanderOf(read->commander);
  if (read->isStop(torvex_.engine().now().timeMs) && !read->isDryRun) {
    std::set<int> axes;
    for (const RequestedBatch& batch : read->batches) {
      axes.insert(batch.commands.actuators.begin(), batch.commands.actuators.end());
    }
    if (!reply.begin()) {
      return;
    }
    const std::vector<int> stopped(axes.begin(), axes.end());
    stops_.note(stopped, [&] {
      desk().stop(stopped, commander, [this, reply, read](const CommandAnswer& answer) {
        reply.later(
            [this, read, answer] { return stopAnswer(view_.machine(), answer, read->batches); });
      });
    });
    return;
  }
  const auto sent = std::make_shared<Sent>();
  sent->request.commander = commander;
  sent->request.isDryRun = read->isDryRun;
  for (const RequestedBatch& batch : read->batches) {
    sent->request.batches.push_back(scheduled(batch));
    sent->batches.push_back(&batch.commands);
  }
  sent->owner = read;
  send(sent, ticket, reply);
}

void Commands::sendMotions(const std::string& body, std::uint64_t ticket, const Reply& reply) {
  const MachineModel machine = view_.machineAsItStands();
  const auto read = std::make_shared<MotionRequest>(
      readMotionRequest(body, machine, torvex_.cycleMs(), motions_));
  const auto sent = std::make_shared<Sent>();
  if (read->isDryRun) {
    sent->preview = printedPreview(machine, read->plan);
  }
  sent->request.commander = commanderOf(read->commander);
  sent->request.isDryRun = read->isDryRun;
  // Time for the command thread to take it.
  constexpr std::int64_t cyclesAhead = 3;
  const std::int64_t nextMs = torvex_.engine().now().timeMs + cyclesAhead * torvex_.cycleMs();
  const std::int64_t beginMs = read->atMs.value_or(nextMs);
  if (beginMs < nextMs) {
    throw Refused({409, "late",
                   fmt::format("at must be {:.3f} s of machine time or later, {:.3f} has passed",
                               inSeconds(nextMs), inSeconds(beginMs)),
                   "/at"});
  }
  for (const ScheduledBatch& planned : read->plan.batches) {
    ScheduledBatch batch = planned;
    batch.momentMs = planned.approaches && !read->atMs
                         ? std::nullopt
                         : std::optional(beginMs + planned.momentMs.value_or(0));
    batch.originMs += beginMs;
    sent->endsMs = std::max(sent->endsMs, batch.originMs + batch.commands->lastMs());
    sent->batches.push_back(planned.commands.get());
    sent->request.batches.push_back(std::move(batch));
  }
  sent->owner = read;
  send(sent, ticket, reply);
}

void Commands::send(const std::shared_ptr<const Sent>& sent, std::uint64_t ticket,
                    const Reply& reply) {
  if (!reply.begin()) {
    return;
  }
  CommandRequest request = sent->request;
  request.isStrict = isStrict_;
  for (ScheduledBatch& batch : request.batches) {
    batch.commands = {sent, batch.commands.get()};
  }
  const bool isDryRun = request.isDryRun;
  const Answered answered = [this, sent, reply, isDryRun,
                             numbers = numbers_](const CommandAnswer& answer) {
    if (answer.isDone() && !isDryRun && !answer.batches.empty()) {
      numbers->note(answer.batches.front().number, answer.batches.size());
    }
    reply.later([this, sent, answer, isDryRun] {
      Answer told = batchesAnswer(view_.machine(), answer, sent->batches, isDryRun, sent->endsMs);
      if (answer.isDone() && !sent->preview.empty()) {
        addMembers(told, sent->preview);
      }
      return told;
    });
  };
  const auto stopped = stops_.unlessStopped(ticket, sent->batches,
                                            [&] { desk().request(std::move(request), answered); });
  if (stopped) {
    throw Refused({409, "stopped", "a stop or a hold came after it, before it was read",
                   sent->batches[*stopped]->path});
  }
}

bool Commands::isStop(const Request& request) const {
  if (request.body.size() > shortBody || request.body.find("\"stop\"") == std::string::npos) {
    return false;
  }
  try {
    return readBatchRequest(request.body, names_).isStop(torvex_.engine().now().timeMs);
  } catch (const UserError&) {
    return false;
  }
}

void Commands::hold(const Request& request, const Reply& reply) {
  const Query query(request, {});
  const std::vector<int> axes = readAxes(request.body, names_);
  stops_.note(axes, [&] {
    desk().hold(axes, [this, reply](const CommandAnswer& answer) {
      reply.later([this, answer] { return axesAnswer(view_.machine(), answer); });
    });
  });
}

void Commands::release(const Request& request, const Reply& reply) {
  const Query query(request, {});
  desk().release(readAxes(request.body, names_), [this, reply](const CommandAnswer& answer) {
    reply.later([this, answer] { return axesAnswer(view_.machine(), answer); });
  });
}

void Commands::enrol(const Request& request, const Reply& reply) {
  const Query query(request, {});
  requireJson(request);
  const Registration wanted = readRegistration(request.body, names_);
  ++enrolling_[request.connection];
  desk().enrol(wanted.enrolment,
               [this, reply, wanted, connection = request.connection](const CommandAnswer& answer) {
                 reply.later([this, answer, wanted, connection] {
                   return enrolled(answer, wanted.enrolment, connection, wanted.endsWithConnection);
                 });
               });
}

Answer Commands::enrolled(const CommandAnswer& answer, const Enrolment& enrolment,
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
  commanderNames_[answer.commander] = enrolment.name;
  if (commanderNames_.size() > mostNames) {
    commanderNames_.erase(commanderNames_.begin());
  }
  Json told = commanderJson(view_.machine(), answer.commander, enrolment);
  if (isGone && endsWithConnection) {
    desk().disconnect(answer.commander);
  } else {
    forgetLost(answer.timeMs);
    known_[answer.commander] = {enrolment, endsWithConnection ? connection : 0, answer.timeMs};
    told["key"] = keys_.give(answer.commander);
  }
  return answerOf(told, 201);
}

void Commands::renew(const Request& request, const Reply& reply) {
  const Query query(request, {});
  const std::optional<std::int64_t> leaseMs = readRenewal(request.body);
  desk().renew(keys_.find(keyIn(request)), leaseMs,
               [this, reply, leaseMs](const CommandAnswer& answer) {
                 reply.later([this, answer, leaseMs] {
                   if (answer.isDone() && leaseMs) {
                     known_[answer.commander].enrolment.leaseMs = leaseMs;
                   }
                   return commanderAnswer(answer);
                 });
               });
}

void Commands::resign(const Request& request, const Reply& reply) {
  const Query query(request, {});
  desk().resign(keys_.find(keyIn(request)), [this, reply](const CommandAnswer& answer) {
    reply.later([this, answer] {
      Answer told = commanderAnswer(answer);
      forget(answer.commander);
      return told;
    });
  });
}

Answer Commands::commanderAnswer(const CommandAnswer& answer) {
  if (!answer.isDone()) {
    return denialAnswer(view_.machine(), answer.denial, "");
  }
  return answerOf(
      commanderJson(view_.machine(), answer.commander, known_[answer.commander].enrolment));
}

CommanderId Commands::commanderOf(const std::optional<std::string>& key) const {
  if (!key) {
    return nobody;
  }
  const CommanderId id = keys_.find(*key);
  if (id == nobody) {
    throw unknownCommander("/commander");
  }
  return id;
}

std::function<void()> Commands::renewing(const std::string& key) {
  const CommanderId id = keys_.find(key);
  if (id == nobody) {
    throw unknownCommander("?commander");
  }
  return [this, id] { desk().renew(id, {}, {}); };
}

void Commands::forgetLost(std::int64_t timeMs) {
  // By then the state that listeners see has those who were there.
  constexpr std::int64_t seenWithinMs = 1000;
  std::set<CommanderId> living;
  for (const CommanderState& commander : desk().state().commanders) {
    living.insert(commander.id);
  }
  for (auto known = known_.begin(); known != known_.end();) {
    const auto& [id, commander] = *known++;
    if (living.count(id) == 0 && timeMs > commander.sinceMs + seenWithinMs) {
      forget(id);
    }
  }
}

void Commands::connectionEnded(std::uint64_t connection) {
  if (enrolling_.count(connection) != 0) {
    gone_.insert(connection);
  }
  for (auto known = known_.begin(); known != known_.end();) {
    const auto& [id, commander] = *known++;
    if (commander.connection == connection) {
      desk().disconnect(id);
      forget(id);
    }
  }
}

void Commands::forget(CommanderId commander) {
  keys_.forget(commander);
  known_.erase(commander);
}

}  // namespace host
