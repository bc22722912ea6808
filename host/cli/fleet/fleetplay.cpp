#include "host/cli/fleet/fleetplay.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <functional>
#include <numeric>
#include <optional>
#include <set>
#include <thread>
#include <utility>

#include "host/base/counted.h"
#include "host/base/stopsignal.h"
#include "host/base/visible.h"
#include "host/cli/fleet/commonstart.h"
#include "host/cli/fleet/member.h"
#include "host/cli/status.h"
#include "host/engine/wallclock.h"

namespace host {
namespace {

using Phase = Member::Phase;

double inMs(std::int64_t timeNs) {
  return static_cast<double>(timeNs) / 1e6;
}

/// The machine that "NAME=MOTION" is for; empty for all.
std::string machineIn(const std::string& motion) {
  const std::size_t sign = motion.find('=');
  return sign == std::string::npos || motion.find('/') < sign ? "" : motion.substr(0, sign);
}

/// What each machine of the fleet plays.
std::vector<std::vector<std::string>> motionsOf(const Fleet& fleet,
                                                const std::vector<std::string>& given) {
  std::vector<std::vector<std::string>> motions(fleet.machines.size());
  std::set<std::string> meant;
  for (std::size_t i = 0; i < motions.size(); ++i) {
    const FleetMachine& machine = fleet.machines[i];
    motions[i] = given.empty() ? machine.motions : std::vector<std::string>();
    meant.insert(machine.name);
    for (const std::string& motion : given) {
      const std::string name = machineIn(motion);
      if (name.empty() || name == machine.name) {
        motions[i].push_back(motion.substr(name.empty() ? 0 : name.size() + 1));
      }
    }
  }
  for (const std::string& motion : given) {
    const std::string name = machineIn(motion);
    if (!name.empty() && meant.count(name) == 0) {
      throw UserError(motion, {}, fmt::format("the fleet has no machine '{}'", name));
    }
  }
  if (std::all_of(motions.begin(), motions.end(), [](const auto& each) { return each.empty(); })) {
    throw UserError("MOTION", {}, "nothing is to be played: name motions, here or in the file");
  }
  return motions;
}

/// One common motion, from the first question to the end.
class FleetPlay {
 public:
  FleetPlay(const Fleet& fleet, const FleetPlayOptions& options)
      : fleet_(fleet), options_(options), askedNs_(wallNs()) {
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
    if (!allReach(Phase::prepared, wallNs() + prepareNs)) {
      return cancel();
    }
    each([](Member& member) { member.enrol(); });
    if (!allReach(Phase::enrolled, wallNs() + enrolNs) || !chooseStart()) {
      return cancel();
    }
    if (!allReach(Phase::sent, start_.startNs - guardNs_)) {
      return cancel();
    }
    sayStart();
    while (wallNs() < start_.startNs - guardNs_) {
      if (!areInStep()) {
        return cancel();
      }
      pause();
    }
    return follow();
  }

 private:
  static void pause() { std::this_thread::sleep_for(std::chrono::milliseconds(2)); }

  void each(const std::function<void(Member&)>& act) {
    std::for_each(members_.begin(), members_.end(), act);
  }

  /// Nobody is gone, and no signal came.
  bool isUnderWay() {
    for (const Member& member : members_) {
      const Member::View view = member.view();
      if (view.phase == Phase::gone) {
        fault_ = shown(member.name(), view.outcome);
        status_ = std::max(view.outcome.status, shortfallStatus);
      }
    }
    if (const int signal = StopSignal::received()) {
      fault_ = fmt::format("torvex: stopped by signal {}\n", signal);
      status_ = signalStatus + signal;
    }
    return fault_.empty();
  }

  bool allReach(Phase phase, std::int64_t untilNs) {
    while (isUnderWay()) {
      const Member* slow = nullptr;
      for (const Member& member : members_) {
        slow = member.view().phase < phase ? &member : slow;
      }
      if (slow == nullptr) {
        return true;
      }
      if (wallNs() > untilNs) {
        blame(slow->name(), "did not answer in time");
        return false;
      }
      pause();
    }
    return false;
  }

  void blame(const std::string& machine, const std::string& why) {
    fault_ = fmt::format("torvex: error: {}: {}\n", visible(machine), why);
    status_ = shortfallStatus;
  }

  /// What all say of their clocks and of what they need; the result is how long reading takes them.
  std::int64_t survey(std::vector<FleetClock>& clocks) {
    constexpr std::int64_t cyclesToTake = 4;
    std::int64_t commonMs = 1;
    std::int64_t preparedInMs = 0;
    for (const Member& member : members_) {
      const Member::View view = member.view();
      clocks.push_back(view.clock);
      zeros_.push_back(view.machineZeroNs);
      approachMs_ = std::max(approachMs_, view.approachMs);
      preparedInMs = std::max(preparedInMs, view.preparedInMs);
      commonMs = std::min<std::int64_t>(std::lcm(commonMs, view.clock.cycleMs), 1000);
    }
    approachMs_ = (approachMs_ + commonMs - 1) / commonMs * commonMs;
    boundNs_ = clocks[leastKnown(clocks)].boundNs;
    // The bound is half of the way there and back.
    guardNs_ = cyclesToTake * longestCycleNs(clocks) + 4 * boundNs_;
    return preparedInMs * nsPerMs;
  }

  /// The moment, and the word to all.
  bool chooseStart() {
    constexpr std::int64_t leastNs = 300 * nsPerMs;
    std::vector<FleetClock> clocks;
    const std::int64_t readingNs = survey(clocks);
    const std::int64_t soonestNs = wallNs() + leastNs + 2 * guardNs_ + readingNs;
    const std::int64_t wishedNs = askedNs_ + static_cast<std::int64_t>(options_.atSeconds * 1e9);
    if (options_.atSeconds > 0 && wishedNs < soonestNs) {
      fault_ =
          fmt::format("torvex: error: --at must be at least {:.3f}: before, not all are ready\n",
                      inMs(soonestNs - askedNs_) / 1000.0);
      status_ = shortfallStatus;
      return false;
    }
    start_ = findCommonStart(clocks, std::max(soonestNs, wishedNs));
    if (start_.apartNs > longestCycleNs(clocks)) {
      blame(members_[leastKnown(clocks)].name(),
            fmt::format("its clock is known to within {:.3f} ms alone: the machines would begin up "
                        "to {:.3f} ms apart, more than a cycle of {:g} ms",
                        inMs(boundNs_), inMs(start_.apartNs), inMs(longestCycleNs(clocks))));
      return false;
    }
    std::size_t i = 0;
    each([&](Member& member) { member.play(start_.atMs[i++], approachMs_); });
    return true;
  }

  void sayStart() {
    std::string moments;
    std::size_t i = 0;
    for (const Member& member : members_) {
      moments +=
          fmt::format("{}{} at {:.3f} s", moments.empty() ? "" : ", ", visible(member.name()),
                      static_cast<double>(start_.atMs[i++]) / 1000.0);
    }
    complain(fmt::format(
        "start    in {:.3f} s, at most {:.3f} ms apart (clocks to within {:.3f} "
        "ms); machine time: {}\n",
        inMs(start_.startNs - wallNs()) / 1000.0, inMs(start_.apartNs), inMs(boundNs_), moments));
  }

  /// All clocks go as they did when the moment was chosen, and tell so.
  bool areInStep() {
    constexpr std::int64_t silentNs = 250 * nsPerMs;
    if (!isUnderWay()) {
      return false;
    }
    std::size_t i = 0;
    for (const Member& member : members_) {
      const Member::View view = member.view();
      const std::int64_t stoodNs = view.machineZeroNs - zeros_[i++];
      const std::int64_t silenceNs = wallNs() - view.aliveNs;
      if (stoodNs != 0) {
        blame(member.name(), fmt::format("machine time stood still for {:g} ms", inMs(stoodNs)));
      } else if (view.isHeldUp) {
        blame(member.name(), "machine time stands still");
      } else if (silenceNs > silentNs + 4 * view.clock.boundNs) {
        blame(member.name(), fmt::format("it has not answered for {:.0f} ms", inMs(silenceNs)));
      }
    }
    return fault_.empty();
  }

  /// Before the start: nothing moves.
  int cancel() {
    each([](Member& member) { member.leave(); });
    complain(fault_);
    waitUntilGone();
    complain("torvex: cancelled on all machines: nothing begins\n");
    sayWhoHasNotLeft();
    return status_;
  }

  void sayWhoHasNotLeft() {
    for (const Member& member : members_) {
      if (!member.view().hasLeft) {
        complain(
            fmt::format("torvex: warning: {}: has not answered the end; its lease, and the end "
                        "of the connection, end it there\n",
                        visible(member.name())));
      }
    }
  }

  void waitUntilGone() {
    while (!std::all_of(members_.begin(), members_.end(),
                        [](const Member& member) { return member.view().phase == Phase::gone; })) {
      pause();
    }
  }

  /// From when a start cannot be cancelled in time any more.
  int follow() {
    std::set<std::string> lost;
    while (true) {
      bool isOver = true;
      std::size_t i = 0;
      for (Member& member : members_) {
        const Member::View view = member.view();
        isOver = isOver && view.phase >= Phase::over;
        noteLoss(member, view, zeros_[i++], lost);
      }
      if (StopSignal::received() != 0 || isOver || isHeld_) {
        return conclude();
      }
      pause();
    }
  }

  void noteLoss(const Member& member, const Member::View& view, std::int64_t& zeroNs,
                std::set<std::string>& lost) {
    std::string what;
    if (view.phase == Phase::gone && lost.insert(member.name()).second) {
      what = "lost: its actuators come to rest when its lease ends";
      complain(shown(member.name(), view.outcome));
    } else if (view.phase == Phase::sent && view.machineZeroNs != zeroNs) {
      what = fmt::format("machine time stood still for {:g} ms: it is not in step any more",
                         inMs(view.machineZeroNs - zeroNs));
      zeroNs = view.machineZeroNs;
    }
    if (what.empty()) {
      return;
    }
    complain(fmt::format("torvex: error: {}: {}\n", visible(member.name()), what));
    status_ = shortfallStatus;
    if (fleet_.allOrNone && !isHeld_) {
      isHeld_ = true;
      each([](Member& each) { each.hold(); });
      complain("torvex: all_or_none: the other machines are held until 'torvex fleet release'\n");
    }
  }

  int conclude() {
    each([](Member& member) { member.leave(); });
    waitUntilGone();
    sayWhoHasNotLeft();
    if (const int signal = StopSignal::received()) {
      complain(fmt::format("torvex: stopped by signal {}; the actuators come to rest\n", signal));
      status_ = signalStatus + signal;
    }
    for (const Member& member : members_) {
      const Played played = member.view().played;
      say(fmt::format("{}: reached: {} of {}\n", visible(member.name()), played.reached,
                      counted(played.points, "point")));
      if (played.cleared + played.refused > 0) {
        complain(
            fmt::format("torvex: error: {}: {}\n", visible(member.name()), played.shortfall()));
      }
      if (played.reached != played.points) {
        status_ = std::max(status_, shortfallStatus);
      }
    }
    return status_;
  }

  const Fleet& fleet_;
  const FleetPlayOptions& options_;
  const std::int64_t askedNs_;
  std::deque<Member> members_;
  CommonStart start_;
  std::vector<std::int64_t> zeros_;
  std::int64_t approachMs_ = 0;
  std::int64_t guardNs_ = 0;
  std::int64_t boundNs_ = 0;
  /// What keeps it from going on, in words; empty while nothing does.
  std::string fault_;
  int status_ = okStatus;
  bool isHeld_ = false;
};

}  // namespace

int playFleet(const Fleet& fleet, const FleetPlayOptions& options) {
  return FleetPlay(fleet, options).run();
}

}  // namespace host
