#pragma once

#include <cstdint>
#include <string>

#include "host/base/attributekeys.h"
#include "host/base/livevalues.h"
#include "host/base/values.h"
#include "host/engine/torvex.h"
#include "host/input/machinemodel.h"
#include "host/input/pointreader.h"
#include "host/server/serviceoptions.h"
#include "simulation/observer.h"

namespace host {

/// A machine as its clients see it.
class MachineView {
 public:
  /// The arguments must outlive the object. Throws `simulation::Error`.
  MachineView(const MachineModel& machine, Torvex& torvex, const ServiceOptions& options);

  [[nodiscard]] const MachineModel& machine() const { return machine_; }
  [[nodiscard]] const ActuatorNames& actuatorNames() const { return actuatorNames_; }
  /// Another one at each start.
  [[nodiscard]] const std::string& instance() const { return instance_; }

  /// With the present values of its command registers as the initial ones.
  [[nodiscard]] MachineModel machineAsItStands() const;

  // Answers, as the interface has them.

  /// The first message to who listens to events.
  [[nodiscard]] Json beginning() const;
  [[nodiscard]] Json describe() const;
  [[nodiscard]] Json health() const;
  /// The stamps of an exchange: when the request came, and now.
  [[nodiscard]] Json clock(std::int64_t receivedNs) const;
  /// Throws `simulation::Error` for a key that is not there.
  [[nodiscard]] Json values(const std::vector<std::string>& keys) const;
  /// Where those of these keys stand in the ring that each cycle writes, in their order; the ring
  /// has no others. Throws the same.
  [[nodiscard]] std::vector<std::size_t> cycleColumns(const std::vector<std::string>& keys) const;
  [[nodiscard]] const CycleRing& cycles() const { return cycles_; }
  [[nodiscard]] LiveValues liveValues(const std::vector<std::string>& keys) const {
    return {observer_, keys_, keys};
  }

 private:
  [[nodiscard]] Json axis(int index, const CommandState::AxisState& state, const Json& owner) const;
  [[nodiscard]] Json followers() const;
  [[nodiscard]] Json attributes() const;

  const MachineModel& machine_;
  const ActuatorNames actuatorNames_;
  Torvex& torvex_;
  const ServiceOptions& options_;
  const simulation::Observer observer_;
  const AttributeKeys keys_;
  CycleRing cycles_;
  const std::string instance_;
  const std::int64_t startedMs_;
};

}  // namespace host
