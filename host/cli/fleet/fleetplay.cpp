#include "host/cli/fleet/fleetplay.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <functional>
#include <numeric>
#include <optional>
#include <thread>
#include <utility>

#include "host/base/clocks.h"
#include "host/base/stopsignal.h"
#include "host/base/visible.h"
#include "host/cli/fleet/commonstart.h"
#include "host/cli/fleet/fleetfollow.h"
#include "host/cli/fleet/fleetmotions.h"
#include "host/cli/fleet/member.h"
#include "host/cli/fleet/startmark.h"
#include "host/cli/output.h"
#include "host/cli/status.h"

namespace host {
namespace {

using Phase = Member::Phase;

/// One common motion, from the first question to the end.
class FleetPlay {
 public:
  FleetPlay(const Fleet& fleet, const FleetPlayOptions& options)
      : fleet_(fleet), options_(options), askedNs_(bootNs()) {
    const auto motions = motionsOf(fleet, options.motions);
    for (std::size_t i = 0; i < motions.size(); ++i) {
      if (!motions[i].empty()) {
        members_.emplace_back(fleet.machines[i], motions[i], options.ignoreUnknownJoints);
      }
    }
  }

  int run() {
    constexpr std::int64_t prepareNs = 30'000 * nsPerMs;
    constexpr std::int64_t enrolNs = 5'000 * nsPerMs;
    if (!allReach(Phase::prepared, bootNs() + prepareNs)) {
      return cancel();
    }
    sayWarnings();
    each([](Member& member) { member.enrol(); });
    if (!allReach(Phase::enrolled, bootNs() + enrolNs) || !waitForWish() || !chooseStart()) {
      return cancel();
    }
    if (!allReach(Phase::sent, start_.startNs - lastCallNs_)) {
      return cancel();
    }
    sayStart();
    if (!allCommit()) {
      return cancel();
    }
    return followFleet(members_, std::move(marks_), start_.startNs, fleet_.allOrNone);
  }

 private:
  static double inMs(std::int64_t timeNs) { return static_cast<double>(timeNs) / 1e6; }
  static void pause() { std::this_thread::sleep_for(std::chrono::milliseconds(2)); }

  void each(const std::function<void(Member&)>& act) {
    std::for_each(members_.begin(), members_.end(), act);
  }

  /// Nobody is gone, no signal came, and nothing else is at fault.
  bool isUnderWay() {
    if (!fault_.empty()) {
      return false;
    }
    for (const Member& member : members_) {
      const Member::View view = member.view();
      if (view.phase == Phase::gone) {
        fault_ += shown(member.name(), view.outcome);
        status_ = std::max({status_, view.outcome.status, shortfallStatus});
      }
    }
    if (const int signal = StopSignal::received()) {
      fault_ = fmt::format("torvex: stopped by signal {}\n", signal);
      status_ = signalStatus + signal;
    }
    return fault_.empty();
  }

  /// One that has not come so far; null when all have.
  [[nodiscard]] const Member* findSlow(Phase phase) const {
    const auto slow = std::find_if(members_.begin(), members_.end(), [phase](const Member& member) {
      return member.view().phase < phase;
    });
    return slow == members_.end() ? nullptr : &*slow;
  }

  bool allReach(Phase phase, std::int64_t untilNs) {
    while (isUnderWay()) {
      const Member* const slow = findSlow(phase);
      if (slow == nullptr) {
        return true;
      }
      if (bootNs() > untilNs) {
        blame(slow->name(), "did not answer in time");
        return false;
      }
      pause();
    }
    return false;
  }

  /// All are told to begin and answer that, and nothing comes between, until the start. What does
  /// within the guard may be cancelled too late on some: they begin, and come to rest.
  bool allCommit() {
    bool isTold = false;
    while (areInStep()) {
      const std::int64_t leftNs = start_.startNs - bootNs();
      if (!isTold && leftNs <= lastCallNs_) {
        each([](Member& member) { member.go(); });
        isTold = true;
      }
      const Member* const slow = leftNs <= guardNs_ ? findSlow(Phase::committed) : nullptr;
      if (slow != nullptr) {
        blame(slow->name(), "did not answer in time");
        return false;
      }
      if (leftNs <= 0) {
        return true;
      }
      pause();
    }
    return false;
  }

  void blame(const std::string& machine, const std::string& why) {
    fault_ += fmt::format("torvex: error: {}: {}\n", visible(machine), why);
    status_ = shortfallStatus;
  }

  void sayWarnings() const {
    for (const Member& member : members_) {
      Member::View view = member.view();
      for (Finding& warning : view.warnings) {
        warning.text = member.name() + ": " + warning.text;
      }
      complainAll("warning", view.warnings);
      for (const std::string& note : view.notes) {
        complain(fmt::format("torvex: note: {}: {}\n", visible(member.name()), visible(note)));
      }
    }
  }

  [[nodiscard]] std::int64_t wishedNs() const {
    return askedNs_ + static_cast<std::int64_t>(options_.atSeconds * 1e9);
  }

  /// Until shortly before: the clocks drift apart between the choice of the moment and the start.
  bool waitForWish() {
    constexpr std::int64_t beforeNs = 5'000 * nsPerMs;
    std::int64_t readingMs = 0;
    for (const Member& member : members_) {
      readingMs = std::max(readingMs, member.view().preparedInMs);
    }
    const std::int64_t untilNs = wishedNs() - beforeNs - 2 * readingMs * nsPerMs;
    if (bootNs() < untilNs) {
      complain(fmt::format("ready    the time of the start is chosen in {:.1f} s\n",
                           inMs(untilNs - bootNs()) / 1000.0));
    }
    while (bootNs() < untilNs && areInStep()) {
      pause();
    }
    return isUnderWay();
  }

  /// What is known of the clocks, and what will be of it at this moment.
  [[nodiscard]] std::vector<FleetClock> clocksAt(std::int64_t momentNs) const {
    std::vector<FleetClock> clocks;
    for (const Member& member : members_) {
      const Member::View view = member.view();
      clocks.push_back(view.clock);
      clocks.back().boundNs += ClockFilter::driftNs(momentNs - view.aliveNs);
    }
    return clocks;
  }

  /// All begin with the longest approach, which all cycles divide: it is equally long on all.
  bool chooseApproach() {
    constexpr std::int64_t mostMs = 10'000;
    std::int64_t commonMs = 1;
    for (const Member& member : members_) {
      const Member::View view = member.view();
      approachMs_ = std::max(approachMs_, view.approachMs);
      commonMs = std::lcm(commonMs, view.clock.cycleMs);
      if (commonMs > mostMs) {
        blame(member.name(),
              fmt::format("its cycle of {} ms and those of the others have no common "
                          "multiple up to {} s: no approach is equally long on all",
                          view.clock.cycleMs, mostMs / 1000));
        return false;
      }
    }
    approachMs_ = (approachMs_ + commonMs - 1) / commonMs * commonMs;
    return true;
  }

  /// The moment from which on all can have taken their motions.
  std::int64_t soonest() {
    constexpr std::int64_t leastNs = 300 * nsPerMs;
    std::int64_t readingMs = 0;
    marks_.clear();
    for (const Member& member : members_) {
      const Member::View view = member.view();
      marks_.push_back({view.machineZeroNs, view.overruns, view.contradictions});
      readingMs = std::max(readingMs, view.preparedInMs);
    }
    const std::vector<FleetClock> clocks = clocksAt(bootNs());
    guardNs_ = startGuardNs(clocks);
    lastCallNs_ = lastCallNs(clocks);
    return bootNs() + leastNs + guardNs_ + lastCallNs_ + readingMs * nsPerMs;
  }

  /// The moment, and the word to all.
  bool chooseStart() {
    const std::int64_t soonestNs = soonest();
    if (options_.atSeconds > 0 && wishedNs() < soonestNs) {
      fault_ = fmt::format(
          "torvex: error: --at must be at least {:.3f}: not all machines are ready earlier\n",
          inMs(soonestNs - askedNs_) / 1000.0);
      status_ = shortfallStatus;
      return false;
    }
    const std::int64_t earliestNs = std::max(soonestNs, wishedNs());
    const std::vector<FleetClock> clocks = clocksAt(earliestNs);
    boundNs_ = clocks[leastKnown(clocks)].boundNs;
    start_ = findCommonStart(clocks, earliestNs);
    if (!isWithinOneCycle(clocks, start_.apartNs) || !chooseApproach()) {
      return false;
    }
    std::size_t i = 0;
    each([&](Member& member) { member.play(start_.atMs[i++], approachMs_); });
    return true;
  }

  bool isWithinOneCycle(const std::vector<FleetClock>& clocks, std::int64_t gapNs) {
    if (gapNs > longestCycleNs(clocks)) {
      const std::size_t least = leastKnown(clocks);
      blame(members_[least].name(),
            fmt::format("its clock is known only to within {:.3f} ms: the machines would begin up "
                        "to {:.3f} ms apart, more than a cycle of {:g} ms",
                        inMs(clocks[least].boundNs), inMs(gapNs), inMs(longestCycleNs(clocks))));
    }
    return fault_.empty();
  }

  void sayStart() {
    std::string moments;
    std::size_t i = 0;
    for (const Member& member : members_) {
      moments += fmt::format("{}{} at {:.3f} s", moments.empty() ? "" : ", ",
                             visible(member.name()), inSeconds(start_.atMs[i++]));
    }
    complain(fmt::format(
        "start    in {:.3f} s, at most {:.3f} ms apart (clocks to within {:.3f} "
        "ms); machine time: {}\n",
        inMs(start_.startNs - bootNs()) / 1000.0, inMs(start_.apartNs), inMs(boundNs_), moments));
  }

  /// Nothing has come between, and all clocks go as they did when the moment was chosen.
  bool areInStep() {
    if (!isUnderWay()) {
      return false;
    }
    for (std::size_t i = 0; i < members_.size(); ++i) {
      const Member::View view = members_[i].view();
      const std::string why = outOfStep(view, marks_.empty() ? nullptr : &marks_[i]);
      if (!marks_.empty()) {
        marks_[i].overruns = view.overruns;
      }
      if (!why.empty()) {
        blame(members_[i].name(), why);
      }
    }
    if (fault_.empty() && !marks_.empty()) {
      const std::vector<FleetClock> clocks = clocksAt(start_.startNs);
      return isWithinOneCycle(clocks, apartNs(clocks, start_.atMs));
    }
    return fault_.empty();
  }

  /// Before the start.
  int cancel() {
    each([](Member& member) { member.leave(); });
    complain(fault_);
    dismiss(members_);
    bool isSure = true;
    for (const Member& member : members_) {
      const Member::Ending ending = member.view().ending.value_or(Member::Ending());
      if (!ending.beginsNothing) {
        isSure = false;
        complain(fmt::format("torvex: error: {}: {}\n", visible(member.name()),
                             ending.hasLeft
                                 ? "was cancelled too late: it may have begun, and ramps to rest"
                                 : "has not answered the cancellation: it may begin, "
                                   "until its lease or its connection ends"));
      }
    }
    complain(isSure ? "torvex: cancelled on all machines: nothing begins\n"
                    : "torvex: cancelled; nothing begins on the other machines\n");
    return status_;
  }

  const Fleet& fleet_;
  const FleetPlayOptions& options_;
  const std::int64_t askedNs_;
  std::deque<Member> members_;
  CommonStart start_;
  std::vector<StartMark> marks_;
  std::int64_t approachMs_ = 0;
  std::int64_t guardNs_ = 0;
  std::int64_t lastCallNs_ = 0;
  std::int64_t boundNs_ = 0;
  /// What keeps it from going on, in words; empty while nothing does.
  std::string fault_;
  int status_ = okStatus;
};

}  // namespace

int playFleet(const Fleet& fleet, const FleetPlayOptions& options) {
  return FleetPlay(fleet, options).run();
}

}  // namespace host
