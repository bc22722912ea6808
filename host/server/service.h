#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "host/server/commands.h"
#include "host/server/http.h"
#include "host/server/machineview.h"
#include "host/server/meshes.h"
#include "host/server/motionfolder.h"
#include "host/server/pageanswers.h"
#include "host/server/registrations.h"
#include "host/server/serviceoptions.h"
#include "host/server/worker.h"

namespace host {

/// Answers the requests of the interface `/v1`.
class Service : public Handler {
 public:
  /// The arguments must outlive the object.
  Service(const MachineModel& machine, Torvex& torvex, const ServiceOptions& options);

  void handle(Request request, const Reply& reply) override;
  std::unique_ptr<Feed> feedFor(const Request& request) override;
  [[nodiscard]] bool isOpenToAll(const Request& head) const override;
  [[nodiscard]] bool isUrgent(const Request& request) const override;
  void connectionEnded(std::uint64_t connection) override;

  /// An address that lets a browser in, once; empty where browsers do not find the door. Before the
  /// door is open.
  std::string newLink() { return page_.newLink(); }

 private:
  using Answerer = void (Service::*)(const Request& request, const Reply& reply);
  struct Route {
    const char* method;
    const char* path;
    Answerer answer;
    bool isOpenToAll = false;
    bool isUrgent = false;
  };
  static const Route routes[];

  [[nodiscard]] static const Route& routeOf(const Request& request);
  void getMachine(const Request& request, const Reply& reply);
  void getDescription(const Request& request, const Reply& reply);
  void getMeshes(const Request& request, const Reply& reply);
  void getMesh(const Request& request, const Reply& reply);
  void getMotions(const Request& request, const Reply& reply);
  void getValues(const Request& request, const Reply& reply);
  void getHealth(const Request& request, const Reply& reply);
  void getClock(const Request& request, const Reply& reply);
  void getEvents(const Request& request, const Reply& reply);
  void getLive(const Request& request, const Reply& reply);
  void postLink(const Request& request, const Reply& reply);
  void postExport(const Request& request, const Reply& reply);
  void getRecordings(const Request& request, const Reply& reply);
  void postRecording(const Request& request, const Reply& reply);
  [[nodiscard]] std::unique_ptr<Feed> eventFeed(const Request& request);
  [[nodiscard]] std::unique_ptr<Feed> liveFeed(const Request& request);
  /// Has what takes long done by the worker, and answered.
  void later(const Reply& reply, const std::function<Answer()>& make);
  template <void (Commands::*answer)(const Request&, const Reply&)>
  void command(const Request& request, const Reply& reply) {
    (commands_.*answer)(request, reply);
  }
  template <void (Registrations::*answer)(const Request&, const Reply&)>
  void registration(const Request& request, const Reply& reply) {
    (registrations_.*answer)(request, reply);
  }

  const MachineModel& machine_;
  Torvex& torvex_;
  const ServiceOptions& options_;
  const MachineView view_;
  PageAnswers page_;
  const Meshes meshes_;
  /// None without `--motions`.
  const std::optional<MotionFolder> motions_;
  Registrations registrations_;
  Commands commands_;
  Worker worker_;
};

}  // namespace host
