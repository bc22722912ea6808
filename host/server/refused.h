#pragma once

#include <exception>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "host/base/usererror.h"
#include "host/base/values.h"
#include "host/server/http.h"

namespace host {

/// Why a request is refused.
struct RequestFault {
  unsigned status = 400;
  const char* reason = "invalid";
  std::string message = {};
  /// The field, as a JSON pointer, or ?NAME for a part of the query.
  std::string path = {};
  /// Further members, as the interface has them.
  Json figures = Json::object();
};

/// Thrown where a request cannot be answered otherwise.
class Refused : public std::exception {
 public:
  explicit Refused(RequestFault fault) : faults_{std::move(fault)} {}
  /// At least one.
  explicit Refused(std::vector<RequestFault> faults) : faults_(std::move(faults)) {}
  [[nodiscard]] const std::vector<RequestFault>& faults() const { return faults_; }

 private:
  std::vector<RequestFault> faults_;
};

/// At least one; the first decides the status.
Answer answerOf(const std::vector<RequestFault>& faults);
Answer answerOf(const UserError& error);
Answer answerOf(const Json& json, unsigned status = 200);
/// That refuses for this reason.
Answer refusal(unsigned status, const char* reason, const std::string& message);

/// Throws `Refused` when a body is not said to be JSON.
void requireJson(const Request& request);

/// Calls `make`, which replies itself; when it throws, replies why.
void answering(const Handler::Reply& reply, const std::function<void()>& make);

}  // namespace host
