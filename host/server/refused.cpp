#include "host/server/refused.h"

#include <nlohmann/json.hpp>

#include "simulation/machine.h"

namespace host {
namespace {

Json jsonOf(const RequestFault& fault) {
  Json json = {{"reason", fault.reason}, {"path", fault.path}, {"message", fault.message}};
  for (const auto& [name, figure] : fault.figures.items()) {
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

Answer answerOf(const std::vector<RequestFault>& faults) {
  Json error = jsonOf(faults.front());
  if (faults.size() > 1) {
    Json all = Json::array();
    for (const RequestFault& fault : faults) {
      all.push_back(jsonOf(fault));
    }
    error["errors"] = std::move(all);
  }
  return answerOf({{"error", std::move(error)}}, faults.front().status);
}

Answer answerOf(const UserError& error) {
  constexpr std::size_t most = 100;
  std::vector<RequestFault> faults;
  for (const UserError::Entry& entry : error.entries()) {
    faults.push_back({400, "invalid", entry.text, entry.path});
    if (faults.size() == most) {
      break;
    }
  }
  return answerOf(faults);
}

void requireJson(const Request& request) {
  static const std::string json = "application/json";
  if (request.contentType.rfind(json, 0) != 0) {
    throw Refused({415, "type", "the body must be " + json});
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

Answer refusal(unsigned status, const char* reason, const std::string& message) {
  return answerOf(std::vector<RequestFault>{{status, reason, message}});
}

}  // namespace host
