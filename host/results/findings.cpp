#include "host/results/findings.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "host/base/clocks.h"
#include "host/base/counted.h"
#include "host/base/visible.h"
#include "host/motion/intake.h"
#include "host/motion/limits.h"

namespace host {
namespace {

const char* nounOf(EventKind kind) {
  const bool isOfSegment =
      kind == EventKind::steep || kind == EventKind::abrupt || kind == EventKind::beyond;
  return isOfSegment ? "segment" : kind == EventKind::guarded ? "step" : "point";
}

/// Told once for a batch, in the words of its worst actuator.
bool isAboutWholeBatch(EventKind kind) {
  return kind == EventKind::late || kind == EventKind::handedLate || kind == EventKind::refused;
}

}  // namespace

std::string shown(const Finding& finding, const char* kind) {
  if (finding.location.line == 0) {
    return visible(fmt::format("torvex: {}: {}", kind, finding.text));
  }
  return visible(fmt::format("{}:{}:{}: {}: {}", finding.path, finding.location.line,
                             finding.location.column, kind, finding.text));
}

Json findingsJson(const std::vector<Finding>& findings) {
  Json list = Json::array();
  for (const Finding& finding : findings) {
    const bool located = finding.location.line > 0;
    list.push_back({{"text", finding.text},
                    {"file", finding.path.empty() ? Json() : Json(finding.path)},
                    {"line", located ? Json(finding.location.line) : Json()},
                    {"column", located ? Json(finding.location.column) : Json()}});
  }
  return list;
}

std::vector<Stretched> stretchedBatches(const std::vector<CommandBatch>& batches) {
  std::vector<Stretched> stretched;
  for (const CommandBatch& batch : batches) {
    if (batch.stretch > 1.0) {
      stretched.push_back({batch.path, batch.location, batch.stretch});
    }
  }
  return stretched;
}

Json stretchedJson(const std::vector<Stretched>& batches) {
  Json list = Json::array();
  for (const Stretched& batch : batches) {
    const std::size_t line = batch.location.line;
    list.push_back(
        {{"file", batch.path}, {"line", line > 0 ? Json(line) : Json()}, {"factor", batch.factor}});
  }
  return list;
}

void Findings::tell(const Event& event, const Point* points) {
  if (event.batch != Event::byOthers && event.batch >= plan_.batches.size()) {
    return;
  }
  const std::string text = textOf(event, points);
  if (!text.empty()) {
    note(event, excessOf(event, points), text);
  }
}

/// Empty where nothing is to be said.
std::string Findings::textOf(const Event& event, const Point* points) const {
  switch (event.kind) {
    case EventKind::limited:
      return limitText(event, *points);
    case EventKind::steep:
      return speedText(event, *points);
    case EventKind::abrupt:
      return accelerationText(event);
    case EventKind::beyond:
      return beyondText(event);
    case EventKind::unstopped:
      return fmt::format("{} has a velocity of {:.4g} at the last point, and stops there abruptly",
                         actuatorOf(event).name, event.amount);
    case EventKind::late:
      return fmt::format("{} of {} late by {} ms", event.count,
                         counted(plan_.batches[event.batch].commands->size(), "point"),
                         event.amount);
    case EventKind::handedLate:
      return event.amount > 0 ? fmt::format("handed over {} ms after its time", event.amount)
                              : "machine time was paused until it was handed over";
    case EventKind::refused:
      return refusalText(event);
    case EventKind::uncertain:
      return fmt::format(
          "not checked from here on: {} points of {}; rounds of several batches run at the same "
          "time for too long",
          event.count, actuatorOf(event).name);
    case EventKind::guarded:
      return guardText(event);
    default:
      return "";
  }
}

/// By how much it is beyond what was allowed: the worst is told.
double Findings::excessOf(const Event& event, const Point* points) const {
  if (event.kind == EventKind::limited) {
    return std::abs(event.amount - commandedNumber(actuatorOf(event), points->value));
  }
  return event.kind == EventKind::beyond ? beyondBy(event) : event.amount;
}

void Findings::note(const Event& event, double excess, const std::string& text) {
  const auto actuators = static_cast<int>(machine_.description.actuators.size());
  const int actuator = isAboutWholeBatch(event.kind) ? -1
                       : event.follower >= 0         ? actuators + event.follower
                                                     : event.actuator;
  Worst& worst = worst_[{event.batch, {event.kind, actuator}}];
  const bool isFirst = worst.count == 0;
  worst.count += event.rounds;
  if (isFirst || excess > worst.excess) {
    worst.excess = excess;
    worst.point = event.point;
    worst.text = text;
    worst.isFailure = event.reason != Fault::none;
  }
}

double Findings::secondsOf(std::int64_t timeMs) const {
  return inSeconds(timeMs - std::int64_t{plan_.schedule.approachMs});
}

double Findings::secondsOf(double timeMs) const {
  return (timeMs - static_cast<double>(plan_.schedule.approachMs)) / 1000.0;
}

std::string Findings::limitText(const Event& event, const Point& point) const {
  const simulation::Actuator& actuator = actuatorOf(event);
  const double done = commandedNumber(actuator, point.value);
  const bool above = event.amount > done;
  const int digits = actuator.typeCode == hal::floatTypeCode ? 6 : 17;
  return fmt::format("{} is commanded to {:.{}g} at {:.3f} s, {} its {} {:.{}g}", actuator.name,
                     event.amount, digits, secondsOf(point.timeMs), above ? "above" : "below",
                     above ? "maximum" : "minimum", above ? actuator.maximum : actuator.minimum,
                     digits);
}

Findings::Limited Findings::limitedBy(const Event& event) const {
  const simulation::Actuator& actuator = actuatorOf(event);
  if (event.follower >= 0) {
    const Follower& follower = machine_.followers[static_cast<std::size_t>(event.follower)];
    return {fmt::format("{}, which follows {},", follower.name, actuator.name), follower};
  }
  Follower own;
  own.minimum = actuator.minimum;
  own.maximum = actuator.maximum;
  own.maximumVelocity = double{actuator.maximumVelocity};
  return {actuator.name, own};
}

double Findings::beyondBy(const Event& event) const {
  const Follower as = limitedBy(event).as;
  const double value = as.multiplier * event.amount + as.offset;
  return std::max(value - as.maximum, as.minimum - value);
}

std::string Findings::beyondText(const Event& event) const {
  const auto [name, as] = limitedBy(event);
  const double value = as.multiplier * event.amount + as.offset;
  const bool above = value > as.maximum;
  return fmt::format("{} goes to {:.6g} {}at {:.3f} s, {} its {} {:.6g}", name, value,
                     event.follower >= 0 ? "" : "between two points, ", secondsOf(event.momentMs),
                     above ? "above" : "below", above ? "maximum" : "minimum",
                     above ? as.maximum : as.minimum);
}

std::string Findings::speedText(const Event& event, const Point& point) const {
  const auto [name, as] = limitedBy(event);
  const double factor = std::abs(as.multiplier);
  if (std::isfinite(event.momentMs)) {
    return fmt::format("{} moves {:.4g} a second at {:.3f} s, above its limit {:.4g}", name,
                       event.amount * factor, secondsOf(event.momentMs), as.maximumVelocity);
  }
  const double value = commandedNumber(actuatorOf(event), point.value);
  return fmt::format("{} moves {:.4g} a second to reach {:.6g} at {:.3f} s, above its limit {:.4g}",
                     name, event.amount * factor, as.multiplier * value + as.offset,
                     secondsOf(point.timeMs), as.maximumVelocity);
}

std::string Findings::accelerationText(const Event& event) const {
  return fmt::format(
      "{} accelerates by {:.4g} a second squared at {:.3f} s, above its limit {:.4g}",
      actuatorOf(event).name, event.amount, secondsOf(event.momentMs),
      machine_.maximumAcceleration(event.actuator));
}

std::string Findings::guardText(const Event& event) const {
  const simulation::Actuator& actuator = actuatorOf(event);
  const double limit = machine_.velocityLimit(event.actuator);
  const bool isOwn = limit == double{actuator.maximumVelocity};
  return fmt::format(
      "{} was to move {:.4g} a second at {:.3f} s, above {} {:.4g}{}", actuator.name, event.amount,
      secondsOf(event.timeMs), isOwn ? "its limit" : "the limit of what follows it,", limit,
      event.reason == Fault::guarded ? ": the guard brought it to rest; '--guard warn' lets it move"
                                     : "");
}

std::string Findings::refusalText(const Event& event) const {
  const std::string& name = actuatorOf(event).name;
  switch (event.reason) {
    case Fault::tooDense:
      return fmt::format(
          "refused: {:.0f} points for '{}' would be due within two cycles of {} ms, "
          "those of other batches counted; at most {} fit",
          event.amount, name, plan_.schedule.cycleMs, TimedCommand::MAX_TIMELINE_ITEMS);
    case Fault::notFinite:
      return fmt::format("refused: '{}' cannot be moved from or to a magnitude above {:g}", name,
                         mostInterpolated);
    case Fault::tooSteep:
      return fmt::format(
          "refused: '{}' cannot be moved with a velocity or acceleration of a "
          "magnitude above {:g}",
          name, mostDerivative);
    case Fault::full:
      return fmt::format(
          "refused: too many points of several actuators are due together with "
          "those for '{}'",
          name);
    case Fault::guarded:
      return fmt::format("refused: the guard holds '{}'", name);
    default:
      break;
  }
  return "refused";
}

const Findings::Worst* Findings::causeOf(const Key& key, const Worst& worst) const {
  const auto& [kind, actuator] = key.second;
  const int follower = actuator - static_cast<int>(machine_.description.actuators.size());
  if (follower < 0) {
    return nullptr;
  }
  const int leader = machine_.followers[static_cast<std::size_t>(follower)].actuator;
  const auto found = worst_.find({key.first, {kind, leader}});
  const bool isSame = found != worst_.end() && found->second.point == worst.point &&
                      found->second.count == worst.count;
  return isSame ? &found->second : nullptr;
}

std::vector<Finding> Findings::all() const {
  std::map<const Worst*, std::size_t> followers;
  for (const auto& [key, worst] : worst_) {
    if (const Worst* const cause = causeOf(key, worst)) {
      ++followers[cause];
    }
  }
  std::vector<Finding> findings;
  for (const auto& [key, worst] : worst_) {
    if (causeOf(key, worst) != nullptr) {
      continue;
    }
    const EventKind kind = key.second.first;
    const bool whole = isAboutWholeBatch(kind);
    Finding& finding = findings.emplace_back();
    if (key.first != Event::byOthers) {
      const CommandBatch& batch = *plan_.batches[key.first].commands;
      finding.path = whole ? batch.path : batch.pointsPath;
      finding.location = whole || batch.locations.empty()
                             ? batch.location
                             : batch.locations[batch.rowOf(worst.point)];
    }
    finding.text = worst.text;
    finding.isFailure = worst.isFailure;
    if (!whole && worst.count > 1) {
      finding.text += fmt::format(" (the worst of {} {}s)", worst.count, nounOf(kind));
    }
    if (const auto repeated = followers.find(&worst); repeated != followers.end()) {
      finding.text += repeated->second == 1
                          ? ", as does 1 joint that follows it"
                          : fmt::format(", as do {} joints that follow it", repeated->second);
    }
  }
  return findings;
}

}  // namespace host
