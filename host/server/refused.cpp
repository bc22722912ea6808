#include "host/server/refused.h"

#include <nlohmann/json.hpp>

#include "simulation/machine.h"

namespace host {
namespace {

Json jsonOf(const RequestFault& refusal) {
  Json json = {{"reason", refusal.reason}, {"path", refusal.path}, {"message", refusal.message}};
  for (const auto& [name, figure] : refusal.figures.items()) {
    json[name] = figure;
  }
  return json;
}

}  // namespace

Answer answerOf(const Json& json, unsigned status) {
  Answer answer;
  answer.status = status;
  answer.body = printed(json, -1) + "\n";
  return answer;
}

Answer answerOf(const std::vector<RequestFault>& refusals) {
  Json error = jsonOf(refusals.front());
  if (refusals.size() > 1) {
    Json all = Json::array();
    for (const RequestFault& refusal : refusals) {
      all.push_back(jsonOf(refusal));
    }
    error["errors"] = std::move(all);
  }
  return answerOf({{"error", std::move(error)}}, refusals.front().status);
}

Answer answerOf(const UserError& error) {
  constexpr std::size_t most = 100;
  std::vector<RequestFault> refusals;
  for (const UserError::Entry& entry : error.entries()) {
    RequestFault refused;
    refused.path = entry.path;
    refused.message = entry.text;
    refusals.push_back(std::move(refused));
    if (refusals.size() == most) {
      break;
    }
  }
  return answerOf(refusals);
}

void requireJson(const Request& request) {
  static const std::string json = "application/json";
  if (request.contentType.rfind(json, 0) != 0) {
    throw Refused({415, "type", "", "the body must be " + json, Json::object()});
  }
}

void answering(const Handler::Reply& reply, const std::function<void()>& make) {
  try {
    make();
  } catch (const Refused& refused) {
    reply(answerOf(refused.faults()));
  } catch (const UserError& error) {
    reply(answerOf(error));
  } catch (const simulation::Error& error) {
    reply(refusal(404, "unknown", error.what()));
  } catch (const std::exception& error) {
    reply(refusal(500, "internal", error.what()));
  }
}

Answer refusal(unsigned status, const char* reason, const std::string& message,
               const std::string& path) {
  RequestFault refused;
  refused.status = status;
  refused.reason = reason;
  refused.path = path;
  refused.message = message;
  return answerOf({refused});
}

}  // namespace host
