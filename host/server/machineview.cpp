#include "host/server/machineview.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>

#include "host/base/clocks.h"
#include "host/server/access.h"
#include "host/server/bounds.h"
#include "host/server/commandjson.h"

namespace host {
namespace {

Json boundsJson() {
  return {{"body_bytes", bounds::bodyBytes},
          {"header_bytes", bounds::headBytes},
          {"connections", bounds::connections},
          {"requests", bounds::requests},
          {"request_ms", bounds::requestTime.count()},
          {"idle_ms", bounds::idleTime.count()},
          {"waiting_points", mostWaitingPoints},
          {"waiting_points_of_commander", mostWaitingPointsOfCommander}};
}

Json pointJson(const simulation::Actuator& actuator, const Point& point) {
  return limitJson(actuator.typeCode, actuator.typeCode == hal::floatTypeCode
                                          ? double{point.value.asFloat}
                                          : static_cast<double>(point.value.asInt));
}

}  // namespace

MachineView::MachineView(const MachineModel& machine, Torvex& torvex, const ServiceOptions& options)
    : machine_(machine),
      actuatorNames_(machine),
      torvex_(torvex),
      options_(options),
      observer_(options.poolName),
      keys_(observer_),
      cycles_(torvex.engine(), machine),
      instance_(randomToken().substr(0, 16)),
      startedMs_(wallNs() / nsPerMs) {
  torvex.setCycles(&cycles_);
}

MachineModel MachineView::machineAsItStands() const {
  MachineModel machine = machine_;
  for (const Axis& axis : torvex_.engine().axes()) {
    hal::AttrGeneric present;
    present.asInt = bitsIn(*axis.command);
    simulation::Value& value =
        machine.description.actuators[static_cast<std::size_t>(axis.index)].value;
    if (axis.actuator.typeCode == hal::floatTypeCode) {
      value = present.asFloat;
    } else {
      value = present.asInt;
    }
  }
  return machine;
}

Json MachineView::beginning() const {
  return {{"number", 0},
          {"kind", "begins"},
          {"machine_ms", torvex_.engine().now().timeMs},
          {"instance", instance_}};
}

Json MachineView::describe() const {
  const CommandState state = torvex_.engine().desk().state();
  std::map<CommanderId, std::string> owners;
  Json commanders = Json::array();
  for (const CommanderState& commander : state.commanders) {
    owners[commander.id] = commander.enrolment.name;
    commanders.push_back(commanderJson(machine_, commander.id, commander.enrolment));
    commanders.back()["counts"] = countsJson(commander.counts);
  }
  Json axes = Json::array();
  for (std::size_t i = 0; i < state.axes.size(); ++i) {
    const auto owner = owners.find(state.axes[i].owner);
    axes.push_back(axis(static_cast<int>(i), state.axes[i],
                        owner == owners.end() ? Json() : Json(owner->second)));
  }
  const bool isHeld = std::all_of(state.axes.begin(), state.axes.end(),
                                  [](const auto& each) { return each.isHeld; });
  return {{"api", 1},
          {"version", TORVEX_VERSION},
          {"instance", instance_},
          {"name", machine_.name},
          {"pool", options_.poolName},
          {"pid", getpid()},
          {"started_ms", startedMs_},
          {"cycle_ms", torvex_.cycleMs()},
          {"machine_ms", torvex_.engine().now().timeMs},
          {"strict", options_.isStrict},
          {"guard", wordFor(guardModeWords, options_.guard)},
          {"held", isHeld},
          {"axes", std::move(axes)},
          {"followers", followers()},
          {"has_description", machine_.urdf != nullptr},
          {"attributes", attributes()},
          {"commanders", std::move(commanders)},
          {"bounds", boundsJson()}};
}

Json MachineView::axis(int index, const CommandState::AxisState& state, const Json& owner) const {
  const simulation::Actuator& actuator = machine_.actuator(index);
  const auto joint = machine_.jointTypes.find(index);
  const std::int64_t cycleMs = torvex_.engine().now().timeMs;
  const bool isJoint = joint != machine_.jointTypes.end();
  const std::string sensor = actuator.name + "/Sensor";
  const auto& sensors = machine_.description.sensors;
  const bool isMeasured =
      std::any_of(sensors.begin(), sensors.end(),
                  [&sensor](const simulation::Sensor& known) { return known.name == sensor; });
  return {
      {"name", actuator.name},
      {"key", valueKey(actuator)},
      {"joint", isJoint ? Json(actuator.name) : Json()},
      {"kind", isJoint ? Json(joint->second) : Json()},
      {"type", valueTypeName(valueType(actuator.typeCode))},
      {"minimum", limitJson(actuator.typeCode, actuator.minimum)},
      {"maximum", limitJson(actuator.typeCode, actuator.maximum)},
      {"maximum_velocity",
       std::isfinite(actuator.maximumVelocity) ? Json(actuator.maximumVelocity) : Json()},
      {"interpolation", actuator.interpolates ? "linear" : "step"},
      {"sensor", isMeasured ? Json(valueKey(sensor)) : Json()},
      {"owner", owner},
      {"held", state.isHeld      ? Json("hold")
               : state.isGuarded ? Json("guard")
                                 : Json()},
      {"waiting", state.counts.left()},
      {"target", state.target ? pointJson(actuator, *state.target) : Json()},
      {"backlog_ms", state.target ? std::max<std::int64_t>(0, state.target->timeMs - cycleMs) : 0},
      {"counts", countsJson(state.counts)}};
}

Json MachineView::followers() const {
  Json followers = Json::array();
  for (const Follower& follower : machine_.followers) {
    followers.push_back({{"joint", follower.name},
                         {"follows", machine_.actuator(follower.actuator).name},
                         {"multiplier", follower.multiplier},
                         {"offset", follower.offset},
                         {"sensor", valueKey(follower.name + "/Sensor")}});
  }
  return followers;
}

Json MachineView::attributes() const {
  Json attributes = Json::array();
  for (const int index : keys_.find({})) {
    attributes.push_back(
        {{"key", keys_.key(index)}, {"type", valueTypeName(valueType(observer_.typeCode(index)))}});
  }
  return attributes;
}

Json MachineView::health() const {
  const Engine::Now now = torvex_.engine().now();
  const CycleCount& counts = torvex_.result().counts;
  const Histogram& latencies = counts.latencies;
  const CommandState state = torvex_.engine().desk().state();
  const bool isHeld = std::any_of(state.axes.begin(), state.axes.end(),
                                  [](const auto& each) { return each.isHeld || each.isGuarded; });
  return {{"status", isHeld ? "held" : "ok"},
          {"machine_ms", now.timeMs},
          {"cycles", std::uint64_t{counts.cycles}},
          {"overruns", now.pace.overruns},
          {"stalls", now.pace.stalls},
          {"stalled_ms", now.pace.stalledMs},
          {"stands", now.pace.stands},
          {"latency_ns",
           {{"p50", latencies.quantile(0.5)},
            {"p99", latencies.quantile(0.99)},
            {"p99.9", latencies.quantile(0.999)},
            {"max", latencies.maximum()}}}};
}

Json MachineView::clock(std::int64_t receivedNs) const {
  const Engine::Now now = torvex_.engine().now();
  const std::optional<std::int64_t> originNs = torvex_.originNs();
  return {{"clock", "boottime"},
          {"received_ns", receivedNs},
          {"machine_zero_ns", originNs ? Json(*originNs + now.lagMs * nsPerMs) : Json()},
          {"machine_ms", now.timeMs},
          {"cycle_ms", torvex_.cycleMs()},
          {"overruns", now.pace.overruns},
          {"instance", instance_},
          {"sent_ns", bootNs()}};
}

std::vector<std::size_t> MachineView::cycleColumns(const std::vector<std::string>& keys) const {
  std::map<std::string, std::size_t> positions;
  for (const CycleRing::Column& column : cycles_.columns()) {
    positions.emplace(column.key, positions.size());
  }
  std::vector<std::size_t> columns;
  for (const int index : keys_.find(keys)) {
    const auto position = positions.find(keys_.key(index));
    if (position != positions.end()) {
      columns.push_back(position->second);
    }
  }
  return columns;
}

Json MachineView::values(const std::vector<std::string>& keys) const {
  const LiveValues values = liveValues(keys);
  const auto ageMs = values.ageMs();
  return {{"cycle", values.cycle().number},
          {"machine_ms", values.cycle().machineTimeMs},
          {"age_ms", ageMs ? Json(*ageMs) : Json()},
          {"whole", values.cycle().isWhole},
          {"values", values.json()}};
}

}  // namespace host
