#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "host/base/values.h"
#include "host/motion/event.h"
#include "host/motion/plan.h"

namespace host {

/// What a user should know of a run, in words.
struct Finding {
  /// The source location, where it is about one.
  std::string path;
  SourceLocation location;
  std::string text;
  /// What was asked was not done, or an axis was held.
  bool isFailure = false;
  /// Cycles were missed or late.
  bool isOfCycles = false;
};

/// "FILE:LINE:COLUMN: warning: TEXT", or with "error"; "torvex: ..." without a location.
std::string shown(const Finding& finding, const char* kind);

/// A list of objects, each with text, file, line and column.
Json findingsJson(const std::vector<Finding>& findings);
/// A batch that was stretched to keep to limits.
struct Stretched {
  std::string path;
  SourceLocation location;
  double factor = 1.0;
};
std::vector<Stretched> stretchedBatches(const std::vector<CommandBatch>& batches);
Json stretchedJson(const std::vector<Stretched>& batches);

/// Gathers what is to be said of the batches of a plan, from the events of a run or of its
/// rehearsal: of each kind, batch and actuator the worst one. What
/// joints that follow it repeat is said with it.
class Findings : public Listener {
 public:
  /// The arguments must outlive the object.
  Findings(const MachineModel& machine, const Plan& plan) : machine_(machine), plan_(plan) {}

  void tell(const Event& event, const Point* points) override;

  /// In the order of the batches.
  [[nodiscard]] std::vector<Finding> all() const;

 private:
  struct Worst {
    double excess = 0.0;
    std::uint32_t point = 0;
    std::string text;
    std::uint64_t count = 0;
    bool isFailure = false;
  };
  /// ScheduledBatch, kind, actuator.
  using Key = std::pair<std::uint32_t, std::pair<EventKind, int>>;

  /// Of that which the actuator follows, where it is the same cause; null where there is none.
  [[nodiscard]] const Worst* causeOf(const Key& key, const Worst& worst) const;
  [[nodiscard]] std::string textOf(const Event& event, const Point* points) const;
  [[nodiscard]] double excessOf(const Event& event, const Point* points) const;
  void note(const Event& event, double excess, const std::string& text);
  [[nodiscard]] const simulation::Actuator& actuatorOf(const Event& event) const {
    return machine_.actuator(event.actuator);
  }
  /// Whose limit it is, and what the actuator's commands mean for that.
  struct Limited {
    std::string name;
    Follower as;
  };
  [[nodiscard]] Limited limitedBy(const Event& event) const;
  [[nodiscard]] std::string limitText(const Event& event, const Point& point) const;
  [[nodiscard]] std::string accelerationText(const Event& event) const;
  [[nodiscard]] std::string speedText(const Event& event, const Point& point) const;
  [[nodiscard]] std::string refusalText(const Event& event) const;
  [[nodiscard]] std::string guardText(const Event& event) const;
  /// Since the start of the motion.
  [[nodiscard]] double secondsOf(std::int64_t timeMs) const;
  [[nodiscard]] double beyondBy(const Event& event) const;
  [[nodiscard]] std::string beyondText(const Event& event) const;
  /// After the start of the motion.
  [[nodiscard]] double secondsOf(double timeMs) const;

  const MachineModel& machine_;
  const Plan& plan_;
  std::map<Key, Worst> worst_;
};

}  // namespace host
