#include "host/server/commands.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
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

}  // namespace

Commands::Commands(const MachineView& view, Torvex& torvex, const Registrations& registrations,
                   bool isStrict, const MotionFolder* motions)
    : view_(view),
      torvex_(torvex),
      registrations_(registrations),
      isStrict_(isStrict),
      motions_(motions) {}

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
  const auto read = std::make_shared<BatchRequest>(readBatchRequest(body, view_.actuatorNames()));
  const CommanderId commander = registrations_.commanderOf(read->commander);
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
  sent->request.commander = registrations_.commanderOf(read->commander);
  sent->request.isDryRun = read->isDryRun;
  // Time for the command thread to take it.
  constexpr std::int64_t cyclesAhead = 3;
  const std::int64_t nextMs = torvex_.engine().now().timeMs + cyclesAhead * torvex_.cycleMs();
  const std::int64_t beginMs = read->atMs.value_or(nextMs);
  if (beginMs < nextMs) {
    throw Refused({409, "late",
                   fmt::format("at is {:.3f} s of machine time; it must be {:.3f} s or later",
                               inSeconds(beginMs), inSeconds(nextMs)),
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
    throw Refused({409, "stopped", "a stop or a hold came after it and before it was executed",
                   sent->batches[*stopped]->path});
  }
}

bool Commands::isStop(const Request& request) const {
  if (request.body.size() > shortBody || request.body.find("\"stop\"") == std::string::npos) {
    return false;
  }
  try {
    return readBatchRequest(request.body, view_.actuatorNames())
        .isStop(torvex_.engine().now().timeMs);
  } catch (const UserError&) {
    return false;
  }
}

void Commands::hold(const Request& request, const Reply& reply) {
  const Query query(request, {});
  const std::vector<int> axes = readAxes(request.body, view_.actuatorNames());
  stops_.note(axes, [&] {
    desk().hold(axes, [this, reply](const CommandAnswer& answer) {
      reply.later([this, answer] { return axesAnswer(view_.machine(), answer); });
    });
  });
}

void Commands::release(const Request& request, const Reply& reply) {
  const Query query(request, {});
  desk().release(readAxes(request.body, view_.actuatorNames()),
                 [this, reply](const CommandAnswer& answer) {
                   reply.later([this, answer] { return axesAnswer(view_.machine(), answer); });
                 });
}

}  // namespace host
