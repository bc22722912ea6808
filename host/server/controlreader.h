#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/engine/request.h"
#include "host/input/pointreader.h"

namespace host {

/// Who wants to own axes.
struct Registration {
  Enrolment enrolment;
  bool endsWithConnection = false;
};

/// Reads the JSON of a registration. Throws `UserError`, as `readBatchRequest`.
Registration readRegistration(const std::string& text, const ActuatorNames& names);

/// The length of the lease that the JSON of a renewal asks for, in milliseconds; none without one.
/// Throws `UserError`.
std::optional<std::int64_t> readRenewal(const std::string& text);

/// The axes that the JSON of a hold or a release names; all without a body. Throws `UserError`.
std::vector<int> readAxes(const std::string& text, const ActuatorNames& names);

}  // namespace host
