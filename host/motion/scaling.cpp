#include "host/motion/scaling.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "host/motion/plan.h"
#include "host/motion/rehearsal.h"

namespace host {
namespace {

/// Beyond this a stretch is taken to be no help.
constexpr double mostStretch = 4096.0;
constexpr double mostMs = 1e9;
/// How near to the least factor the search comes.
constexpr double precision = 1.0002;

/// Which batches ask for more than they may.
class Excesses : public Listener {
 public:
  explicit Excesses(std::size_t batches) : exceeds_(batches, false) {}

  void tell(const Event& event, const Point* /*points*/) override {
    if (event.kind == EventKind::steep || event.kind == EventKind::abrupt) {
      exceeds_[event.batch] = true;
    }
  }
  [[nodiscard]] const std::vector<bool>& all() const { return exceeds_; }

 private:
  std::vector<bool> exceeds_;
};

/// The factor of one batch, between one that is too small and the least known to suffice.
struct Search {
  std::size_t batch = 0;
  CommandBatch original;
  double low = 1.0;
  double high = 0.0;
  double factor = 1.0;

  [[nodiscard]] double mostFactor() const {
    const auto lastMs = static_cast<double>(std::max<std::int64_t>(original.lastMs(), 1));
    return std::min(mostStretch, mostMs / lastMs);
  }
  [[nodiscard]] bool isDone() const { return factor == high || factor > mostFactor(); }
  /// The next factor to try; false when there is none.
  bool goOn(bool exceeds) {
    (exceeds ? low : high) = factor;
    if (high == 0.0) {
      factor = low * 2.0;
      return factor <= mostFactor();
    }
    factor = high > low * precision ? std::sqrt(low * high) : high;
    return factor != high;
  }
};

class Scaling {
 public:
  Scaling(const MachineModel& machine, std::vector<CommandBatch>& batches, const Timing& timing)
      : machine_(machine), batches_(batches), timing_(timing) {}

  void run() {
    std::vector<bool> exceeds = rehearsed();
    std::vector<Search> searches;
    for (std::size_t i = 0; i < batches_.size(); ++i) {
      if (exceeds[i] && !batches_[i].times.empty()) {
        searches.push_back({i, batches_[i]});
      }
    }
    for (bool goesOn = !searches.empty(); goesOn;) {
      goesOn = false;
      for (Search& search : searches) {
        if (!search.isDone() && search.goOn(exceeds[search.batch])) {
          batches_[search.batch] = stretched(search.original, search.factor);
          goesOn = true;
        }
      }
      exceeds = rehearsed();
    }
    settle(searches);
  }

 private:
  [[nodiscard]] std::vector<bool> rehearsed() const {
    Excesses excesses(batches_.size());
    const Plan plan = planRun(machine_, batches_, timing_);
    rehearse(machine_, plan, excesses);
    return excesses.all();
  }

  /// Batches change each other's segments: what was found one by one need not suffice together.
  /// What a little more does not help either stays as it was.
  void settle(std::vector<Search>& searches) {
    for (const Search& search : searches) {
      batches_[search.batch] = stretched(search.original, search.high == 0.0 ? 1.0 : search.high);
    }
    constexpr int tries = 20;
    constexpr double more = 1.02;
    bool changed = true;
    for (int i = 0; changed; ++i) {
      const std::vector<bool> exceeds = rehearsed();
      changed = false;
      for (Search& search : searches) {
        if (search.high != 0.0 && exceeds[search.batch]) {
          const bool helps = i < tries && search.high * more < search.mostFactor();
          search.high = helps ? search.high * more : 0.0;
          batches_[search.batch] = stretched(search.original, helps ? search.high : 1.0);
          changed = true;
        }
      }
    }
  }

  const MachineModel& machine_;
  std::vector<CommandBatch>& batches_;
  const Timing& timing_;
};

}  // namespace

CommandBatch stretched(const CommandBatch& batch, double factor) {
  CommandBatch longer = batch;
  longer.stretch = factor;
  for (std::uint32_t& time : longer.times) {
    time = static_cast<std::uint32_t>(std::ceil(static_cast<double>(time) * factor));
  }
  for (float& velocity : longer.velocities) {
    velocity = static_cast<float>(double{velocity} / factor);
  }
  for (float& acceleration : longer.accelerations) {
    acceleration = static_cast<float>(double{acceleration} / (factor * factor));
  }
  return longer;
}

void stretchToLimits(const MachineModel& machine, std::vector<CommandBatch>& batches,
                     const Timing& timing) {
  Scaling(machine, batches, timing).run();
  for (CommandBatch& batch : batches) {
    if (batch.stretch > 1.0) {
      batch.notes.push_back(fmt::format(
          "stretched by {:.4g} to keep velocities and accelerations within their limits ({}:{})",
          batch.stretch, batch.path, batch.location.line));
    }
  }
}

}  // namespace host
