#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/engine/torvex.h"
#include "host/input/machinemodel.h"
#include "host/input/requestreader.h"
#include "host/server/http.h"
#include "host/server/machineview.h"
#include "host/server/motionfolder.h"
#include "host/server/registrations.h"
#include "host/server/requestnumbers.h"
#include "host/server/stoptickets.h"
#include "host/server/worker.h"

namespace host {

/// The requests that command: batches, motions, holds. I/O thread.
class Commands {
 public:
  using Reply = Handler::Reply;

  /// The references must outlive the object, and the machine's threads end before it. `motions` may
  /// be null.
  Commands(const MachineView& view, Torvex& torvex, const Registrations& registrations,
           bool isStrict, const MotionFolder* motions);

  // Each answers one request. Throw `Refused` and `UserError`.

  void batches(const Request& request, const Reply& reply);
  void motions(const Request& request, const Reply& reply);
  void hold(const Request& request, const Reply& reply);
  void release(const Request& request, const Reply& reply);

  /// Whether these batches are stops alone, which are due.
  [[nodiscard]] bool isStop(const Request& request) const;
  [[nodiscard]] const RequestNumbers& numbers() const { return *numbers_; }

 private:
  /// What is asked of the engine, with what its answer is told by.
  struct Sent {
    CommandRequest request;
    std::vector<const CommandBatch*> batches;
    std::int64_t endsMs = 0;
    /// What else is answered of motions that are not to be played: a printed object, or nothing.
    std::string preview;
    /// What the batches lie in.
    std::shared_ptr<const void> owner;
  };

  /// The ticket tells when the body came.
  using Read = std::function<void(const std::string& body, std::uint64_t ticket)>;

  /// Reads a body at once, or, where that may take long, on a thread of its own.
  void readThen(const Request& request, const Reply& reply, const Read& read);
  /// On the thread of the worker.
  void readLater(Worker& worker, const Request& request, const Reply& reply, const Read& read);
  void sendBatches(const std::string& body, std::uint64_t ticket, const Reply& reply);
  void sendMotions(const std::string& body, std::uint64_t ticket, const Reply& reply);
  void send(const std::shared_ptr<const Sent>& sent, std::uint64_t ticket, const Reply& reply);
  [[nodiscard]] Desk& desk() { return torvex_.engine().desk(); }

  const MachineView& view_;
  Torvex& torvex_;
  const Registrations& registrations_;
  const bool isStrict_;
  const MotionFolder* const motions_;
  StopTickets stops_;
  const std::shared_ptr<RequestNumbers> numbers_ = std::make_shared<RequestNumbers>();
  Worker reader_;
  /// What it does takes longer still.
  Worker previewer_;
};

}  // namespace host
