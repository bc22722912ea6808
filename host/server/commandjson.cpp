#include "host/server/commandjson.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "host/base/visible.h"
#include "host/results/eventjson.h"
#include "host/server/refused.h"
#include "timedcommand/timedcommand.h"

namespace host {
namespace {

unsigned statusOf(Fault fault) {
  switch (fault) {
    case Fault::owned:
    case Fault::held:
    case Fault::guarded:
    case Fault::replayed:
      return 409;
    case Fault::unknown:
      return 404;
    case Fault::full:
    case Fault::ending:
      return 503;
    default:
      return 422;
  }
}

std::string textOf(const Denial& denial, const std::string& name) {
  switch (denial.reason) {
    case Fault::owned:
      return denial.owner == nobody
                 ? fmt::format("'{}' is not an axis of this commander", name)
                 : fmt::format("'{}' belongs to '{}'", name, visible(denial.ownerName));
    case Fault::held:
      return fmt::format("'{}' is held until a release", name);
    case Fault::guarded:
      return fmt::format("'{}' is held by the guard until a release", name);
    case Fault::unknown:
      return "there is no such commander, or it has ended";
    case Fault::full:
      return fmt::format("too many points wait; there is room for {}", denial.room);
    case Fault::ending:
      return "the machine is shutting down";
    case Fault::replayed:
      return "the machine replays a recording and takes no commands";
    case Fault::tooDense:
      return fmt::format("{:g} points of '{}' within two cycles, at most {:g} fit", denial.figure,
                         name, denial.limit);
    case Fault::notFinite:
      return fmt::format("'{}' cannot be commanded to {:g}", name, denial.figure);
    case Fault::beyond:
      return fmt::format("'{}' is commanded to {:g}, beyond its limit {:g}", name, denial.figure,
                         denial.limit);
    default:
      return fmt::format("'{}' is commanded to move {:g} a second, above its limit {:g}", name,
                         denial.figure, denial.limit);
  }
}

/// It is about one point, and a figure of it.
bool hasFigure(Fault fault) {
  return statusOf(fault) == 422;
}

Json axesJson(const MachineModel& machine, const CommandAnswer::TakenBatch& batch) {
  Json axes = Json::array();
  for (const CommandAnswer::TakenAxis& axis : batch.axes) {
    axes.push_back({{"key", valueKey(machine.actuator(axis.actuator))},
                    {"points", axis.points},
                    {"late", axis.late},
                    {"limited", axis.limited}});
  }
  return axes;
}

Json namesOf(const MachineModel& machine, const std::vector<int>& axes) {
  Json names = Json::array();
  for (const int axis : axes) {
    names.push_back(machine.actuator(axis).name);
  }
  return names;
}

RequestFault faultOf(const MachineModel& machine, const Denial& denial, const std::string& path) {
  const std::string name = denial.actuator < 0 ? "" : machine.actuator(denial.actuator).name;
  RequestFault refused{statusOf(denial.reason), reasonName(denial.reason),
                       textOf(denial, visible(name)), path};
  if (denial.actuator >= 0) {
    refused.figures["key"] = valueKey(machine.actuator(denial.actuator));
  }
  if (denial.reason == Fault::owned && denial.owner != nobody) {
    refused.figures["owner"] = denial.ownerName;
  }
  if (denial.reason == Fault::full) {
    refused.figures["room"] = denial.room;
  }
  if (hasFigure(denial.reason)) {
    refused.figures["figure"] = denial.figure;
    refused.figures["limit"] = denial.limit;
  }
  return refused;
}

/// About a point: of a motion file, with its source location.
RequestFault faultOfPoint(const MachineModel& machine, const Denial& denial,
                          const CommandBatch& batch) {
  const std::size_t row = batch.rowOf(denial.point);
  RequestFault refused = faultOf(machine, denial, fmt::format("{}/{}", batch.pointsPath, row));
  if (row < batch.locations.size() && batch.locations[row].line != 0) {
    refused.path = "/files";
    refused.figures["file"] = batch.pointsPath;
    refused.figures["line"] = batch.locations[row].line;
    refused.figures["column"] = batch.locations[row].column;
  }
  return refused;
}

}  // namespace

Answer denialAnswer(const MachineModel& machine, const Denial& denial, const std::string& path) {
  return answerOf(std::vector{faultOf(machine, denial, path)});
}

Answer batchesAnswer(const MachineModel& machine, const CommandAnswer& answer,
                     const std::vector<const CommandBatch*>& batches, bool isDryRun,
                     std::int64_t endsMs) {
  const Denial& denial = answer.denial;
  if (!answer.isDone()) {
    const CommandBatch& batch = *batches.at(std::min(denial.batch, batches.size() - 1));
    const bool isAboutBatch = denial.reason != Fault::unknown && denial.reason != Fault::ending &&
                              denial.reason != Fault::replayed;
    return answerOf(std::vector{hasFigure(denial.reason)
                                    ? faultOfPoint(machine, denial, batch)
                                    : faultOf(machine, denial,
                                              isAboutBatch                      ? batch.path
                                              : denial.reason == Fault::unknown ? "/commander"
                                                                                : "")});
  }
  Json taken = Json::array();
  for (std::size_t i = 0; i < answer.batches.size(); ++i) {
    const CommandAnswer::TakenBatch& batch = answer.batches[i];
    taken.push_back({{"path", batches.at(i)->path},
                     {"batch", isDryRun ? Json() : Json(batch.number)},
                     {"axes", axesJson(machine, batch)},
                     {"notes", batches[i]->notes}});
  }
  const bool hasNumber = !isDryRun && !answer.batches.empty();
  return answerOf(Json{{"request", hasNumber ? Json(answer.batches.front().number) : Json()},
                       {"dry_run", isDryRun},
                       {"machine_ms", answer.timeMs},
                       {"ends_ms", std::max(endsMs, answer.timeMs)},
                       {"batches", std::move(taken)}});
}

void addMembers(Answer& answer, const std::string& object) {
  const std::size_t end = answer.body.rfind('}');
  answer.body.replace(end, 1, "," + object.substr(1));
}

Answer stopAnswer(const MachineModel& machine, const CommandAnswer& answer,
                  const std::vector<RequestedBatch>& batches) {
  if (!answer.isDone()) {
    return denialAnswer(machine, answer.denial,
                        answer.denial.reason == Fault::unknown ? "/commander" : "/batches/0/stop");
  }
  Json stopped = Json::array();
  for (const RequestedBatch& batch : batches) {
    CommandAnswer::TakenBatch none;
    for (const int actuator : batch.commands.actuators) {
      none.axes.push_back({actuator, 0, 0, 0});
    }
    stopped.push_back({{"path", batch.commands.path},
                       {"batch", nullptr},
                       {"axes", axesJson(machine, none)},
                       {"notes", Json::array()}});
  }
  return answerOf(Json{{"request", nullptr},
                       {"dry_run", false},
                       {"machine_ms", answer.timeMs},
                       {"ends_ms", answer.timeMs},
                       {"batches", std::move(stopped)}});
}

Answer axesAnswer(const MachineModel& machine, const CommandAnswer& answer) {
  if (!answer.isDone()) {
    return denialAnswer(machine, answer.denial, "");
  }
  return answerOf(Json{{"axes", namesOf(machine, answer.axes)}, {"machine_ms", answer.timeMs}});
}

Json countsJson(const PointCounts& counts) {
  return {{"points", counts.points},   {"reached", counts.reached}, {"cleared", counts.cleared},
          {"refused", counts.refused}, {"late", counts.late},       {"limited", counts.limited}};
}

Json commanderJson(const MachineModel& machine, CommanderId id, const Enrolment& enrolment) {
  return {{"id", id},
          {"name", enrolment.name},
          {"axes", namesOf(machine, enrolment.axes)},
          {"priority", enrolment.priority},
          {"lease_ms", enrolment.leaseMs ? Json(*enrolment.leaseMs) : Json()},
          {"on_loss", wordFor(lossRuleWords, enrolment.onLoss)}};
}

}  // namespace host
