#include "host/results/eventjson.h"

#include <nlohmann/json.hpp>

#include "host/base/words.h"

namespace host {
namespace {

void addCleared(const Event& event, Json& json) {
  if (event.byBatch == Event::byOthers) {
    json["by"] = "others";
  } else if (event.byBatch == Event::byGuard) {
    json["by"] = "guard";
  } else if (event.byBatch == Event::byHold) {
    json["by"] = "hold";
  } else if (event.byBatch == Event::byCommander) {
    json["by"] = "commander";
  } else if (event.byBatch == Event::byStop || event.byBatch == Event::byHost) {
    json["by"] = "stop";
  } else {
    json["by"] = "batch";
    json["by_batch"] = event.byBatch;
  }
}

bool hasAmount(EventKind kind) {
  switch (kind) {
    case EventKind::late:
    case EventKind::limited:
    case EventKind::steep:
    case EventKind::abrupt:
    case EventKind::beyond:
    case EventKind::unstopped:
    case EventKind::handedLate:
    case EventKind::guarded:
    case EventKind::stalled:
      return true;
    default:
      return false;
  }
}

const char* textMember(EventKind kind) {
  return kind == EventKind::droppedRows ? "output"
         : kind == EventKind::recorded  ? "file"
                                        : "message";
}

/// The numbers from here on are no batches.
bool isAboutBatch(const Event& event) {
  switch (event.kind) {
    case EventKind::stalled:
    case EventKind::starved:
    case EventKind::droppedRows:
    case EventKind::recorded:
    case EventKind::unrecorded:
    case EventKind::stopped:
    case EventKind::held:
    case EventKind::released:
    case EventKind::registered:
    case EventKind::lost:
    case EventKind::external:
    case EventKind::guarded:
      return false;
    default:
      return event.batch < Event::byCommander;
  }
}

constexpr Word<EventKind> kindWords[] = {
    {"taken", EventKind::taken},
    {"reached", EventKind::reached},
    {"cleared", EventKind::cleared},
    {"late", EventKind::late},
    {"limited", EventKind::limited},
    {"steep", EventKind::steep},
    {"abrupt", EventKind::abrupt},
    {"beyond", EventKind::beyond},
    {"unstopped", EventKind::unstopped},
    {"refused", EventKind::refused},
    {"handed_late", EventKind::handedLate},
    {"guarded", EventKind::guarded},
    {"external", EventKind::external},
    {"stalled", EventKind::stalled},
    {"starved", EventKind::starved},
    {"dropped_rows", EventKind::droppedRows},
    {"recorded", EventKind::recorded},
    {"unrecorded", EventKind::unrecorded},
    {"stopped", EventKind::stopped},
    {"held", EventKind::held},
    {"released", EventKind::released},
    {"registered", EventKind::registered},
    {"lost", EventKind::lost},
    {"uncertain", EventKind::uncertain},
};

}  // namespace

const char* kindName(EventKind kind) {
  return wordFor(kindWords, kind);
}

const char* reasonName(Fault fault) {
  switch (fault) {
    case Fault::full:
      return "full";
    case Fault::tooDense:
      return "too_dense";
    case Fault::notFinite:
      return "not_finite";
    case Fault::guarded:
      return "guard";
    case Fault::tooSteep:
    case Fault::tooFast:
      return "too_fast";
    case Fault::beyond:
      return "beyond_limits";
    case Fault::owned:
      return "owned";
    case Fault::held:
      return "held";
    case Fault::unknown:
      return "unknown";
    case Fault::expired:
      return "expired";
    case Fault::resigned:
      return "resigned";
    case Fault::disconnected:
      return "disconnected";
    case Fault::ending:
      return "ending";
    case Fault::replayed:
      return "replay";
    case Fault::none:
      break;
  }
  return "internal";
}

Json eventJson(const Event& event, const EventContext& context, const MachineModel& machine) {
  Json json = {
      {"number", context.number}, {"kind", kindName(event.kind)}, {"machine_ms", event.timeMs}};
  if (isAboutBatch(event)) {
    if (context.request) {
      json["request"] = *context.request;
    }
    json["batch"] = event.batch;
  }
  if (event.commander != 0) {
    json["commander"] = event.commander;
    if (!context.name.empty()) {
      json["name"] = context.name;
    }
  }
  if (event.actuator >= 0) {
    json["key"] = valueKey(machine.actuator(event.actuator));
    json["point"] = event.point;
  }
  if (event.follower >= 0) {
    json["follower"] = machine.followers[static_cast<std::size_t>(event.follower)].name;
  }
  json["count"] = event.count;
  if (event.rounds != 1) {
    json["rounds"] = event.rounds;
  }
  if (event.kind == EventKind::cleared) {
    addCleared(event, json);
  }
  if (event.reason != Fault::none) {
    json["reason"] = reasonName(event.reason);
  }
  if (hasAmount(event.kind)) {
    json["amount"] = event.amount;
  }
  if (event.text != nullptr) {
    json[textMember(event.kind)] = *event.text;
  }
  return json;
}

std::string eventLine(const Event& event, const EventContext& context,
                      const MachineModel& machine) {
  return printed(eventJson(event, context, machine), -1);
}

}  // namespace host
