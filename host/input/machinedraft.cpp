#include "host/input/machinedraft.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "host/input/document.h"

namespace host {
namespace {

struct Bound {
  std::size_t most;
  const char* noun;
};

/// In the order of `MachineDraft::Counted`.
constexpr std::array bounds = {
    Bound{simulation::maxAttributes, "attributes"},
    Bound{simulation::maxPreferences, "preferences"},
    // A short file may name one text many times.
    Bound{Document::maxBytes, "bytes of names and texts"},
};

}  // namespace

void NameTable::take(const std::string& name, const FileLocation& where, const std::string& noun) {
  const auto [first, isFirst] = names_.emplace(name, where);
  if (!isFirst) {
    throw UserError(where, fmt::format("a second {} is named '{}'; the first one is at {}", noun,
                                       name, shown(first->second)));
  }
}

MachineDraft::MachineDraft(ErrorCollector& errors, TextOf textOf)
    : errors_(errors), textOf_(std::move(textOf)) {}

void MachineDraft::take(Counted what, std::size_t amount, const FileLocation& where) {
  std::size_t& count = counts_[static_cast<std::size_t>(what)];
  const auto& [most, noun] = bounds[static_cast<std::size_t>(what)];
  count += amount;
  if (count > most) {
    errors_.stop({where, fmt::format("the machine up to here has {} {}; at most {} are possible",
                                     count, noun, most)});
  }
}

void MachineDraft::addActuator(simulation::Actuator actuator, ActuatorFields fields) {
  take(Counted::attributes, simulation::MachineDescription::attributesPerActuator, fields.location);
  actuators_.emplace(actuator.name, static_cast<int>(fields_.size()));
  fields_.push_back(std::move(fields));
  model.description.actuators.push_back(std::move(actuator));
}

void MachineDraft::addSensor(simulation::Sensor sensor, const FileLocation& where) {
  take(Counted::attributes, simulation::MachineDescription::attributesPerSensor, where);
  sensors_.emplace(sensor.name, model.description.sensors.size());
  model.description.sensors.push_back(std::move(sensor));
}

int MachineDraft::actuator(const std::string& name) const {
  const auto found = actuators_.find(name);
  return found == actuators_.end() ? -1 : found->second;
}

simulation::Sensor* MachineDraft::sensor(const std::string& name) {
  const auto found = sensors_.find(name);
  return found == sensors_.end() ? nullptr : &model.description.sensors[found->second];
}

void MachineDraft::failAsUnknown(const FileLocation& where, const std::string& what) const {
  if (!namesAreComplete) {
    throw AlreadyReported();
  }
  throw UserError(where, what);
}

void MachineDraft::setApproachVelocity(std::size_t actuator) {
  const ActuatorFields& fields = fields_[actuator];
  const auto most = double{model.description.actuators[actuator].maximumVelocity};
  const std::optional<double> given =
      fields.approachVelocity ? fields.approachVelocity : approachVelocity;
  if (given || std::isfinite(fields.usualApproachVelocity)) {
    model.approachVelocities[static_cast<int>(actuator)] =
        given.value_or(std::min(most / 4.0, fields.usualApproachVelocity));
  }
}

/// What does not interpolate only knows steps.
void MachineDraft::setMaximumAcceleration(std::size_t actuator) {
  const std::optional<double>& own = fields_[actuator].maximumAcceleration;
  const std::optional<double>& given = own ? own : maximumAcceleration;
  if (given && model.description.actuators[actuator].interpolates) {
    model.maximumAccelerations[static_cast<int>(actuator)] = *given;
  }
}

MachineModel MachineDraft::finish() {
  for (std::size_t i = 0; i < fields_.size(); ++i) {
    settle(fields_[i], model.description.actuators[i], errors_);
    setApproachVelocity(i);
    setMaximumAcceleration(i);
  }
  errors_.throwIfAny();
  return std::move(model);
}

}  // namespace host
