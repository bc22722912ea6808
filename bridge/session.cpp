#include "bridge/session.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <sstream>
#include <thread>
#include <utility>
#include <vector>

#include "bridge/output.h"
#include "host/base/clocks.h"
#include "host/base/counted.h"
#include "host/base/stopsignal.h"
#include "host/client/answer.h"
#include "host/client/doorclient.h"
#include "host/client/doors.h"

namespace bridge {
namespace {

using host::Json;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;

constexpr int lookEveryMs = 100;
constexpr std::size_t mostOrders = 64;

/// The command registers of all actuators.
std::vector<JointStates::Joint> commandedJoints(const Json& machine) {
  std::vector<JointStates::Joint> joints;
  for (const Json& axis : host::memberOf(machine, "axes")) {
    joints.push_back({host::textOf(axis, "name"), host::textOf(axis, "key")});
  }
  return joints;
}

/// What is measured, of axes and of what follows them.
std::vector<JointStates::Joint> measuredJoints(const Json& machine) {
  std::vector<JointStates::Joint> joints;
  const auto add = [&joints](const std::string& name, const Json& joint) {
    if (const std::string sensor = host::textOf(joint, "sensor"); !sensor.empty()) {
      joints.push_back({name, sensor});
    }
  };
  for (const Json& axis : host::memberOf(machine, "axes")) {
    add(host::textOf(axis, "name"), axis);
  }
  for (const Json& follower : host::memberOf(machine, "followers")) {
    add(host::textOf(follower, "joint"), follower);
  }
  return joints;
}

/// What a refusal says, on one line.
std::string oneLine(const std::string& said) {
  constexpr std::string_view prefix = "torvex: error: ";
  std::string all;
  std::istringstream lines(said);
  for (std::string line; std::getline(lines, line);) {
    line = line.rfind(prefix, 0) == 0 ? line.substr(prefix.size()) : line;
    all += (all.empty() ? "" : "; ") + line;
  }
  return all;
}

std::string notesIn(const Json& answer) {
  std::string text;
  std::uint64_t late = 0;
  std::uint64_t limited = 0;
  for (const Json& batch : host::memberOf(answer, "batches")) {
    for (const Json& axis : host::memberOf(batch, "axes")) {
      late += host::countOf(axis, "late");
      limited += host::countOf(axis, "limited");
    }
    for (const Json& note : host::memberOf(batch, "notes")) {
      text += "; " + (note.is_string() ? note.get<std::string>() : "");
    }
  }
  return (late > 0 ? fmt::format("; {} late", late) : "") +
         (limited > 0 ? fmt::format("; {} moved into the limits", limited) : "") + text;
}

}  // namespace

Session::Session(Topics& topics, Intake& intake, const Configuration& configuration,
                 const std::string& machine, EventsSeen& seen)
    : topics_(topics),
      intake_(intake),
      configuration_(configuration),
      socket_(host::doorOf(machine)),
      machine_(host::DoorClient(socket_).get("/v1/machine")),
      observer_(host::textOf(machine_, "pool")),
      keys_(observer_),
      seen_(seen) {}

void Session::run() {
  tellDescription();
  say(fmt::format("{}: {} on domain {}, interface {}; commands from there are reported here",
                  topics_.name, host::counted(host::memberOf(machine_, "axes").size(), "actuator"),
                  configuration_.domain, configuration_.interface));
  std::thread states([this] { guarded([this] { tellStates(); }); });
  std::thread events([this] { guarded([this] { tellEvents(); }); });
  intake_.handTo([this](const JointTrajectory& message) { take(message); });
  guarded([this] { handOver(); });
  intake_.handTo({});
  states.join();
  events.join();
  for (const Order& order : orders_) {
    topics_.tellRefusal(order.summary, host::StopSignal::received() != 0 ? "the bridge ends"
                                                                         : "the machine has ended");
  }
}

void Session::guarded(const std::function<void()>& part) noexcept {
  try {
    part();
  } catch (const host::DoorClosed&) {  // it has ended
  } catch (const host::NoMachine&) {
  } catch (const host::WaitStopped&) {
  } catch (const std::exception& error) {
    complain(fmt::format("warning: {}: {}", topics_.name, error.what()));
  }
  end();
}

void Session::end() {
  const std::lock_guard lock(mutex_);
  ended_ = true;
  ordered_.notify_all();
}

bool Session::isOver() const {
  return ended_ || host::StopSignal::received() != 0;
}

void Session::tellDescription() {
  if (!topics_.description) {
    return;
  }
  std::string text;
  if (host::memberOf(machine_, "has_description") == Json(true)) {
    text = host::DoorClient(socket_).getText("/v1/description");
  }
  if (text.size() >= Network::mostText) {
    complain(fmt::format(
        "warning: {}: the robot description has {} bytes; at most {} can be published: left out",
        topics_.name, text.size(), Network::mostText));
    text.clear();
  }
  const std_msgs_msg_dds__String_ message{text.data()};
  if (text.empty()) {
    topics_.description->dispose(&message);  // that of an earlier machine of this name
  } else {
    topics_.description->write(&message);
  }
}

void Session::tellStates() {
  JointStates measured(observer_, keys_, measuredJoints(machine_));
  JointStates commanded(observer_, keys_, commandedJoints(machine_));
  const nanoseconds cycle =
      milliseconds(std::max<std::int64_t>(host::numberOf(machine_, "cycle_ms"), 1));
  const nanoseconds period =
      configuration_.rateHz > 0
          ? nanoseconds(static_cast<std::int64_t>(host::nsPerSecond / configuration_.rateHz))
          : nanoseconds(0);
  std::uint64_t told = 0;
  auto due = std::chrono::steady_clock::now();
  // The next cycle is looked for when it should be there, and then often.
  const nanoseconds soon = cycle / 8;
  while (!isOver() && observer_.isOwned()) {
    if (const auto now = std::chrono::steady_clock::now(); now < due) {
      std::this_thread::sleep_for(std::min<nanoseconds>(due - now, milliseconds(lookEveryMs)));
      continue;
    }
    const simulation::PoolCycle present = observer_.copyCycle();
    if (present.number == told || present.number == 0 || !present.isWhole) {
      std::this_thread::sleep_for(soon);
      continue;
    }
    told = present.number;
    if (topics_.measured) {
      topics_.measured->write(&measured.at(present));
    }
    if (topics_.commanded) {
      topics_.commanded->write(&commanded.at(present));
    }
    due = std::max(due + period, std::chrono::steady_clock::now() - period);
    const nanoseconds ahead = nanoseconds(present.wallTimeNs - host::wallNs()) + cycle;
    std::this_thread::sleep_for(std::clamp(ahead, soon, cycle));
  }
}

void Session::tellEvents() {
  const std::string instance = host::textOf(machine_, "instance");
  std::string target = "/v1/events";
  if (seen_.instance == instance) {
    target += fmt::format("?since={}", seen_.number);
  } else if (!seen_.instance.empty()) {
    target += "?since=0";  // it was started while the bridge waited for it
  }
  seen_.instance = instance;
  host::EventLines lines(socket_, target);
  while (!isOver() && !lines.hasEnded()) {
    const std::optional<Json> event = lines.next(lookEveryMs);
    if (event) {
      const std::uint64_t number = host::countOf(*event, "number");
      const std::string kind = host::textOf(*event, "kind");
      seen_.number = kind == "begins" || kind == "missed" ? number : number + 1;
      if (!topics_.tell(*event)) {
        complain(fmt::format("warning: {}: no reader took event {}", topics_.name, number),
                 About::events);
      }
    }
  }
}

void Session::take(const JointTrajectory& message) {
  const simulation::PoolCycle cycle = observer_.copyCycle();
  if (!cycle.isWhole && !isStop(message)) {
    throw Unfit("the machine is stuck within a cycle");
  }
  Arrival arrival;
  arrival.nowNs = host::wallNs();
  arrival.cycleMs = cycle.machineTimeMs;
  arrival.cycleNs = cycle.wallTimeNs;
  arrival.periodNs = host::numberOf(machine_, "cycle_ms") * host::nsPerMs;
  arrival.horizonNs = static_cast<std::int64_t>(configuration_.horizonSeconds * host::nsPerSecond);
  arrival.axes = host::memberOf(machine_, "axes").size();
  Order order{requestOf(message, arrival), summaryOf(message), isStop(message), host::bootNs()};
  const std::lock_guard lock(mutex_);
  if (orders_.size() >= mostOrders) {
    throw Unfit("too many trajectories wait for the machine");
  }
  orders_.push_back(std::move(order));
  ordered_.notify_one();
}

void Session::handOver() {
  std::unique_lock lock(mutex_);
  while (!isOver()) {
    if (orders_.empty()) {
      ordered_.wait_for(lock, milliseconds(lookEveryMs));
      continue;
    }
    const Order order = std::move(orders_.front());
    orders_.pop_front();
    lock.unlock();
    handOver(order);
    lock.lock();
  }
}

void Session::handOver(const Order& order) {
  constexpr std::int64_t mostWaitNs = host::nsPerSecond;
  if (!order.isStop && host::bootNs() - order.cameNs > mostWaitNs) {
    topics_.tellRefusal(order.summary, "it waited for the machine for more than a second");
    return;
  }
  try {
    // A connection of its own: one that rests would be closed.
    const Json answer = host::DoorClient(socket_).postText("/v1/batches", order.body);
    say(fmt::format("{}: {}: taken at machine time {:.3f} s{}", topics_.name, order.summary,
                    host::inSeconds(host::numberOf(answer, "machine_ms")), notesIn(answer)));
  } catch (const host::DoorRefusal& refusal) {
    topics_.tellRefusal(order.summary, oneLine(refusal.what()));
  } catch (const host::NoMachine& gone) {
    topics_.tellRefusal(order.summary, gone.what());
    throw;
  } catch (const host::DoorClosed& gone) {
    topics_.tellRefusal(order.summary,
                        std::string("it may have been taken anyway: ") + gone.what());
    if (!observer_.isOwned()) {
      throw;
    }
  }
}

}  // namespace bridge
