#include "host/server/service.h"

#include <fmt/format.h>

#include <exception>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <utility>

#include "host/base/clocks.h"
#include "host/base/usererror.h"
#include "host/input/requestreader.h"
#include "host/results/preferenceexport.h"
#include "host/server/bounds.h"
#include "host/server/feeds.h"
#include "host/server/query.h"
#include "host/server/refused.h"

namespace host {
namespace {

Json fileJson(const RingFiles::File& file) {
  constexpr const char* states[] = {"waiting", "written", "failed"};
  Json json = {{"file", file.name},
               {"reason", file.reason},
               {"machine_ms", file.triggerMs},
               {"until_ms", file.untilMs()},
               {"state", states[static_cast<std::size_t>(file.state)]},
               {"bytes", file.bytes}};
  if (!file.fault.empty()) {
    json["message"] = file.fault;
  }
  return json;
}

/// Messages a second.
constexpr double leastLiveRate = 0.01;
constexpr double mostLiveRate = 1000;

std::vector<std::string> keysIn(const Query& query) {
  std::vector<std::string> keys = query.all("key");
  if (keys.size() > bounds::keys) {
    throw Refused({400, "invalid", fmt::format("more than {} keys", bounds::keys), "?key"});
  }
  return keys;
}

/// Throws `Refused` where an export would take the place of another file than an earlier export.
void checkReplaced(const std::string& path, const NamedFiles& files) {
  try {
    std::vector<NamedOutput> outputs = files.outputs;
    outputs.push_back({path, "preference file"});
    checkOutputs(outputs, files.inputs);
  } catch (const UserError& error) {
    throw Refused({400, "invalid", error.entries().front().text, "/file"});
  }
  if (std::filesystem::exists(path) && !isPreferenceFile(path)) {
    throw Refused({400, "invalid", "is there, and is no preference file", "/file"});
  }
}

constexpr char meshPrefix[] = "/v1/meshes/";

/// "{key}" stands for a key of hexadecimal digits, "{path}" at the end for anything.
bool isAt(const std::string& path, const std::string& pattern) {
  const std::size_t rest = pattern.find("{path}");
  if (rest != std::string::npos) {
    return path.size() > rest && path.compare(0, rest, pattern, 0, rest) == 0;
  }
  const std::size_t place = pattern.find("{key}");
  if (place == std::string::npos) {
    return path == pattern;
  }
  const std::size_t end = std::min(path.find_first_not_of("0123456789abcdef", place), path.size());
  return end > place && path.compare(0, place, pattern, 0, place) == 0 &&
         path.substr(end) == pattern.substr(place + 5);
}

}  // namespace

const Service::Route Service::routes[] = {
    {"GET", "/v1/machine", &Service::getMachine},
    {"GET", "/v1/description", &Service::getDescription},
    {"GET", "/v1/meshes", &Service::getMeshes},
    {"GET", "/v1/meshes/{path}", &Service::getMesh},
    {"GET", "/v1/motions", &Service::getMotions},
    {"GET", "/v1/values", &Service::getValues},
    {"GET", "/v1/health", &Service::getHealth, true, true},
    {"GET", "/v1/clock", &Service::getClock, false, true},
    {"GET", "/v1/events", &Service::getEvents},
    {"GET", "/v1/live", &Service::getLive},
    {"POST", "/v1/links", &Service::postLink},
    {"POST", "/v1/exports", &Service::postExport},
    {"GET", "/v1/recordings", &Service::getRecordings},
    {"POST", "/v1/recordings", &Service::postRecording},
    {"POST", "/v1/batches", &Service::command<&Commands::batches>},
    {"POST", "/v1/motions", &Service::command<&Commands::motions>},
    {"POST", "/v1/hold", &Service::command<&Commands::hold>, true, true},
    {"POST", "/v1/release", &Service::command<&Commands::release>, false, true},
    {"POST", "/v1/commanders", &Service::registration<&Registrations::enrol>},
    {"POST", "/v1/commanders/{key}/renew", &Service::registration<&Registrations::renew>, false,
     true},
    {"DELETE", "/v1/commanders/{key}", &Service::registration<&Registrations::resign>, false, true},
};

Service::Service(const MachineModel& machine, Torvex& torvex, const ServiceOptions& options)
    : machine_(machine),
      torvex_(torvex),
      options_(options),
      view_(machine, torvex, options),
      page_(options.address, options.cookie),
      meshes_(options.packageFolders, machine.urdf.get()),
      motions_(options.motionFolder.empty() ? std::nullopt
                                            : std::optional<MotionFolder>(options.motionFolder)),
      registrations_(view_, torvex.engine().desk()),
      commands_(view_, torvex, registrations_, options.isStrict, motions_ ? &*motions_ : nullptr) {}

void Service::later(const Reply& reply, const std::function<Answer()>& make) {
  reply.postpone();
  const bool hasRoom = worker_.add([make, reply] {
    if (reply.begin()) {
      answering(reply, [&] { reply(make()); });
    }
  });
  if (!hasRoom) {
    throw Refused({503, "busy", "too many requests wait for their turn"});
  }
}

const Service::Route& Service::routeOf(const Request& request) {
  std::string others;
  for (const Route& route : routes) {
    if (!isAt(request.path, route.path)) {
      continue;
    }
    if (request.method == route.method) {
      return route;
    }
    others += (others.empty() ? "" : ", ") + std::string(route.method);
  }
  if (!others.empty()) {
    throw Refused({405, "method", "use " + others});
  }
  throw Refused({404, "unknown", "there is no such path; see docs/api.md"});
}

void Service::handle(Request request, const Reply& reply) {
  answering(reply, [&] {
    if (PageAnswers::isFor(request)) {
      reply(page_.answer(request));
      return;
    }
    (this->*routeOf(request).answer)(request, reply);
  });
}

bool Service::isOpenToAll(const Request& head) const {
  try {
    return PageAnswers::isFor(head) || routeOf(head).isOpenToAll;
  } catch (const Refused&) {
    return false;
  }
}

bool Service::isUrgent(const Request& request) const {
  try {
    return routeOf(request).isUrgent ||
           (request.path == "/v1/batches" && commands_.isStop(request));
  } catch (const Refused&) {
    return false;
  }
}

void Service::connectionEnded(std::uint64_t connection) {
  registrations_.connectionEnded(connection);
}

void Service::getMachine(const Request& request, const Reply& reply) {
  const Query query(request, {});
  reply(answerOf(view_.describe()));
}

void Service::getDescription(const Request& request, const Reply& reply) {
  const Query query(request, {});
  if (machine_.urdf == nullptr) {
    throw Refused({404, "unknown", "the machine has no URDF"});
  }
  Answer answer;
  answer.contentType = "application/xml";
  answer.body = *machine_.urdf;
  reply(std::move(answer));
}

void Service::getMeshes(const Request& request, const Reply& reply) {
  const Query query(request, {});
  later(reply, [this] { return answerOf(Json{{"meshes", meshes_.present()}}); });
}

void Service::getMesh(const Request& request, const Reply& reply) {
  const Query query(request, {});
  const std::string path = request.path.substr(sizeof meshPrefix - 1);
  later(reply, [this, path] { return meshes_.answer(path); });
}

void Service::getMotions(const Request& request, const Reply& reply) {
  const Query query(request, {});
  later(reply, [this] {
    return answerOf(Json{{"motions", motions_ ? motions_->list() : Json::array()}});
  });
}

void Service::getValues(const Request& request, const Reply& reply) {
  const Query query(request, {"key"});
  try {
    reply(answerOf(view_.values(keysIn(query))));
  } catch (const simulation::Error& error) {
    throw Refused({404, "unknown", error.what(), "?key"});
  }
}

void Service::getHealth(const Request& request, const Reply& reply) {
  const Query query(request, {});
  reply(answerOf(view_.health()));
}

void Service::getClock(const Request& request, const Reply& reply) {
  const Query query(request, {});
  reply.later(
      [this, receivedNs = request.receivedNs] { return answerOf(view_.clock(receivedNs)); });
}

std::unique_ptr<Feed> Service::eventFeed(const Request& request) {
  const Query query(request, {"since", "follow", "commander"});
  const EventRing& ring = torvex_.engine().events();
  const std::optional<std::uint64_t> since = query.wholeNumber("since");
  if (since && *since > ring.cursorAt(std::nullopt).next) {
    throw Refused({400, "invalid", "there is no event of this number yet", "?since"});
  }
  const std::optional<std::string> commander = query.text("commander");
  std::function<void()> renew;
  if (commander && request.isUpgrade) {
    renew = registrations_.renewing(*commander);
  }
  return std::make_unique<EventFeed>(
      EventSource{ring, machine_, commands_.numbers(), registrations_.names()}, view_.beginning(),
      since, std::move(renew));
}

/// Those up to now; or what `feedFor` refused.
void Service::getEvents(const Request& request, const Reply& reply) {
  const std::unique_ptr<Feed> feed = eventFeed(request);
  Answer answer;
  answer.contentType = "application/x-ndjson";
  for (std::string line = feed->next(); !line.empty(); line = feed->next()) {
    answer.body += line + "\n";
  }
  reply(std::move(answer));
}

std::unique_ptr<Feed> Service::liveFeed(const Request& request) {
  const Query query(request, {"key", "rate", "every_cycle"});
  const auto periodNs = static_cast<std::int64_t>(
      nsPerSecond / query.number("rate", 20, leastLiveRate, mostLiveRate));
  if (!query.truth("every_cycle", false)) {
    return std::make_unique<LiveFeed>(view_.liveValues(keysIn(query)),
                                      std::max(periodNs, torvex_.cycleMs() * nsPerMs));
  }
  std::vector<std::size_t> columns = view_.cycleColumns(keysIn(query));
  if (columns.empty()) {
    throw Refused({400, "invalid", "none of these is a command register or a sensor", "?key"});
  }
  return std::make_unique<CycleFeed>(view_.cycles(), std::move(columns), periodNs);
}

/// What `feedFor` refused.
void Service::getLive(const Request& request, const Reply& /*reply*/) {
  (void)liveFeed(request);
  throw Refused({400, "invalid", "this path needs a WebSocket"});
}

std::unique_ptr<Feed> Service::feedFor(const Request& request) {
  try {
    if (request.method == "GET" && request.path == "/v1/events" &&
        (request.isUpgrade ||
         Query(request, {"since", "follow", "commander"}).truth("follow", true))) {
      return eventFeed(request);
    }
    if (request.method == "GET" && request.path == "/v1/live" && request.isUpgrade) {
      return liveFeed(request);
    }
  } catch (const std::exception&) {
    return nullptr;  // and `handle` says why
  }
  return nullptr;
}

void Service::postLink(const Request& request, const Reply& reply) {
  const Query query(request, {});
  const std::string link = page_.newLink();
  if (link.empty()) {
    throw Refused({404, "unknown", "this machine has no page; serve it with --http"});
  }
  reply(answerOf(Json{{"link", link}}, 201));
}

void Service::postExport(const Request& request, const Reply& reply) {
  const Query query(request, {});
  requireJson(request);
  PreferenceExport wanted;
  readRequest(request.body, "an export", {"container", "file"},
              [&](const Document& body, const Document::Fields& fields) {
                body.requiredField(fields, body.root(), "container", [&](const Node& node) {
                  wanted.container = body.name(node, "container");
                });
                body.requiredField(fields, body.root(), "file", [&](const Node& node) {
                  wanted.file = body.name(node, "file");
                });
              });
  checkExport(machine_, wanted, options_.preferenceDirectory);
  later(reply, [this, wanted] {
    checkReplaced(wanted.pathIn(options_.preferenceDirectory), options_.files);
    return answerOf(Json{{"said", exportPreferences(wanted, options_.preferenceDirectory)}});
  });
}

void Service::getRecordings(const Request& request, const Reply& reply) {
  const Query query(request, {});
  Json json = {{"folder", Json()}, {"files", Json::array()}, {"left_out", 0}};
  if (options_.ring != nullptr) {
    const RingFiles& files = options_.ring->files();
    json["folder"] = files.folder();
    json["left_out"] = files.leftOut();
    for (const RingFiles::File& file : files.from(0)) {
      json["files"].push_back(fileJson(file));
    }
  }
  reply(answerOf(json));
}

void Service::postRecording(const Request& request, const Reply& reply) {
  const Query query(request, {});
  if (options_.ring == nullptr) {
    throw Refused(
        {404, "unknown", "there is no ring; start the machine with --record-ring SECONDS"});
  }
  const RingFiles::Granted granted = options_.ring->ask("request");
  if (!granted.file) {
    throw Refused({429, "too_often", granted.refusal});
  }
  reply(answerOf(fileJson(*granted.file), 202));
}

}  // namespace host
