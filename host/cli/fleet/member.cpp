#include "host/cli/fleet/member.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>
#include <utility>

#include "host/base/clocks.h"
#include "host/cli/clients/client.h"
#include "host/cli/clients/motionrequest.h"
#include "host/client/answer.h"

namespace host {
namespace {

constexpr int turnMs = 5;
constexpr std::int64_t askEveryNs = 50 * nsPerMs;
/// For what takes the machine no time.
constexpr int shortWaitMs = 1000;
/// Of a commander that has ended.
constexpr std::string_view unknownReason = "unknown";

/// Ends what a member does once it was ordered to leave.
struct Leaves {};

}  // namespace

Member::Member(const FleetMachine& machine, std::vector<std::string> motions,
               bool ignoreUnknownJoints)
    : machine_(machine),
      motions_(std::move(motions)),
      ignoresUnknownJoints_(ignoreUnknownJoints),
      thread_([this] { run(); }) {}

Member::~Member() {
  leave();
  thread_.join();
}

Member::View Member::view() const {
  const std::lock_guard lock(mutex_);
  return view_;
}

void Member::play(std::int64_t atMs, std::int64_t approachMs) {
  atMs_ = atMs;
  approachMs_ = approachMs;
  give(Order::play);
}

void Member::give(Order order) {
  if (!isToLeave()) {
    order_ = order;
    abandoned_ = isToLeave();
  }
}

void Member::enter(Phase phase) {
  const std::lock_guard lock(mutex_);
  view_.phase = phase;
  view_.played = played_;
}

void Member::run() {
  FleetOutcome outcome = outcomeOf([this] { return act(); });
  if (isToLeave()) {
    outcome = FleetOutcome();  // what it waited for was given up
  }
  {
    // At once: the others may have to be held.
    const std::lock_guard lock(mutex_);
    view_.outcome = std::move(outcome);
    view_.played = played_;
    view_.phase = Phase::gone;
  }
  Ending ending = end();
  const std::lock_guard lock(mutex_);
  view_.ending = std::move(ending);
}

std::string Member::act() {
  try {
    prepare();
    enter(Phase::prepared);
    await(Order::enrol);
    doEnrol();
    enter(Phase::enrolled);
    await(Order::play);
    send();
    enter(Phase::sent);
    follow();
    enter(Phase::over);
    await(Order::leave);
  } catch (const Leaves&) {
  } catch (const DoorRefusal& refusal) {
    if (!key_.empty() && refusal.reason() == unknownReason) {
      throw DoorClosed("its lease ended before it was renewed");
    }
    throw;
  }
  return "";
}

void Member::prepare() {
  constexpr int longWaitMs = 10'000;
  const std::int64_t beginNs = bootNs();
  Json answer;
  {
    DoorClient door(machine_.door, {longWaitMs, &abandoned_});
    const Json body = {{"ignore_unknown_joints", ignoresUnknownJoints_}, {"dry_run", true}};
    answer = postMotions(door, motions_, body);
  }
  keys_ = keysIn(answer, played_);
  const std::int64_t tookMs = (bootNs() - beginNs) / nsPerMs;
  longLeaseMs_ = shortWaitMs + 2 * tookMs;
  {
    DoorClient door(machine_.door, {static_cast<int>(longLeaseMs_), &abandoned_});
    watch_.askOften(door);
  }
  // Commands are answered a cycle later.
  longLeaseMs_ += 4 * watch_.clock().cycleMs;
  door_ = std::make_unique<DoorClient>(machine_.door,
                                       Patience{static_cast<int>(longLeaseMs_), &abandoned_});
  findFresh();
  {
    const std::lock_guard lock(mutex_);
    view_.approachMs = std::clamp<std::int64_t>(numberOf(answer, "approach_ms"), 0, 100'000'000);
    view_.preparedInMs = tookMs;
    view_.warnings = warningsIn(answer);
    view_.notes = notesIn(answer);
  }
  tellClock();
}

/// An actuator that was never commanded takes a cycle to find out where it stands.
void Member::findFresh() {
  const Json machine = door_->get("/v1/machine");
  for (const Json& axis : memberOf(machine, "axes")) {
    const std::string key = textOf(axis, "key");
    if (countOf(memberOf(axis, "counts"), "points") == 0 &&
        std::find(keys_.begin(), keys_.end(), Json(key)) != keys_.end()) {
      fresh_.insert(key);
    }
  }
}

/// By a point where they stand, so that they begin with the others.
void Member::wakeFresh() {
  Json batches = Json::array();
  const Json values = fresh_.empty() ? Json::object() : door_->get("/v1/values");
  for (const auto& value : memberOf(values, "values").items()) {
    if (fresh_.count(value.key()) != 0) {
      const Json item = {{"time", 0}, {"value", value.value()}};
      batches.push_back(Json{{"key", value.key()}, {"items", Json::array({item})}});
    }
  }
  if (!batches.empty()) {
    door_->post("/v1/batches", Json{{"commander", key_}, {"batches", std::move(batches)}});
  }
}

void Member::doEnrol() {
  const Json registration = {{"name", fmt::format("fleet-{}", getpid())},
                             {"axes", keys_},
                             {"lease_ms", longLeaseMs_},
                             {"on_loss", "stop"},
                             {"ends_with_connection", true}};
  key_ = textOf(door_->post("/v1/commanders", registration), "key");
  renewedNs_ = bootNs();
  wakeFresh();
  events_ =
      std::make_unique<EventLines>(machine_.door, "/v1/events", Patience{shortWaitMs, &abandoned_});
  watch_.ask(*door_);
  tellClock();
}

void Member::send() {
  const Json body = {{"ignore_unknown_joints", ignoresUnknownJoints_},
                     {"dry_run", false},
                     {"commander", key_},
                     {"at", inSeconds(atMs_)},
                     {"approach", inSeconds(approachMs_)}};
  answer_ = postMotions(*door_, motions_, body);
  renewedNs_ = bootNs();
  played_ = Played();
  (void)keysIn(answer_, played_);
  if (numberOf(answer_, "machine_ms") >= atMs_) {
    throw DoorClosed("the motions arrived after the time at which they were to begin");
  }
  isToBeTold_ = true;
  renew();
  watch_.ask(*door_);
  tellClock();
}

void Member::follow() {
  while (!played_.isOver()) {
    for (std::optional<Json> event = events_->next(turnMs); event; event = events_->next(0)) {
      note(*event);
      tellPlayed();
      watchOver();
    }
    if (events_->hasEnded()) {
      throw DoorClosed("the machine ended before the motion did");
    }
    watchOver();
  }
}

void Member::note(const Json& event) {
  if (textOf(event, "kind") == "missed") {
    throw DoorClosed("too many events were missed, so the outcome of the motion is not known");
  }
  if (memberOf(event, "request") == memberOf(answer_, "request")) {
    played_.note(event);
    notedMs_ = numberOf(event, "machine_ms");
  }
}

void Member::await(Order order) {
  while (order_ < order) {
    std::this_thread::sleep_for(std::chrono::milliseconds(turnMs));
    watchOver();
  }
  if (isToLeave()) {
    throw Leaves();
  }
}

/// Looks at the clock, and renews the lease.
void Member::watchOver() {
  constexpr std::int64_t renewals = 4;
  if (isToLeave()) {
    throw Leaves();
  }
  if (bootNs() - watch_.askedNs() > askEveryNs) {
    watch_.ask(*door_);
    tellClock();
  }
  if (isToBeTold_ && order_ == Order::go) {
    isToBeTold_ = false;
    renew();
    enter(std::max(view_.phase, Phase::committed));
  }
  if (!key_.empty() && bootNs() - renewedNs_ > leaseMs() * nsPerMs / renewals) {
    renew();
  }
}

std::int64_t Member::leaseMs() const {
  if (!isToBeTold_) {
    return longLeaseMs_;
  }
  const FleetClock clock = watch_.clock();
  return leaseBeforeStartNs(clock, clock.readingAt(atMs_) - bootNs()) / nsPerMs;
}

void Member::renew() {
  constexpr std::int64_t leastMs = 50;
  const std::int64_t lengthMs = leaseMs();
  if (lengthMs < leastMs) {
    throw DoorClosed("the order to begin came too late");
  }
  renewedNs_ = bootNs();
  door_->post(fmt::format("/v1/commanders/{}/renew", key_), Json{{"lease_ms", lengthMs}});
}

void Member::tellPlayed() {
  const std::lock_guard lock(mutex_);
  view_.played = played_;
}

void Member::tellClock() {
  const std::lock_guard lock(mutex_);
  view_.clock = watch_.clock();
  view_.machineZeroNs = watch_.machineZeroNs();
  view_.isHeldUp = watch_.isHeldUp();
  view_.overruns = watch_.overruns();
  view_.contradictions = watch_.contradictions();
  view_.aliveNs = watch_.askedNs();
}

/// Over a connection of its own: on the other one an answer may be due.
FleetOutcome Member::askOnce(const std::function<void(DoorClient&)>& ask) const {
  return outcomeOf([&] {
    const int waitMs = shortWaitMs + 2 * static_cast<int>(watch_.clock().cycleMs);
    DoorClient door(machine_.door, {waitMs, nullptr});
    ask(door);
    return "";
  });
}

/// Whether the machine has told that all of its motion went before the moment.
bool Member::wasClearedBefore() {
  if (answer_.is_null()) {
    return false;
  }
  (void)outcomeOf([this] {
    while (const std::optional<Json> event = events_->next(0)) {
      note(*event);
    }
    return "";
  });
  return played_.reached == 0 && played_.isOver() && notedMs_ < atMs_;
}

Member::Ending Member::end() {
  Ending ending;
  ending.beginsNothing = atMs_ == 0;
  if (key_.empty()) {
    door_.reset();  // which ends what is under way
    ending.hasLeft = true;
    return ending;
  }
  if (order_ == Order::hold) {
    ending.hold = askOnce([this](DoorClient& door) { door.post("/v1/hold", {{"axes", keys_}}); });
  }
  const FleetOutcome left = askOnce([this, &ending](DoorClient& door) {
    try {
      door.remove(fmt::format("/v1/commanders/{}", key_));
    } catch (const DoorRefusal& refusal) {
      if (refusal.reason() != unknownReason) {
        throw;
      }
    }
    ending.hasLeft = true;
    ending.beginsNothing |= numberOf(door.get("/v1/clock"), "machine_ms") < atMs_;
  });
  ending.beginsNothing |= wasClearedBefore();
  return ending;
}

}  // namespace host
