#include "host/cli/fleet/fleetfollow.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <set>
#include <string>
#include <thread>
#include <utility>

#include "host/base/clocks.h"
#include "host/base/counted.h"
#include "host/base/stopsignal.h"
#include "host/base/visible.h"
#include "host/cli/fleet/commonstart.h"
#include "host/cli/output.h"
#include "host/cli/status.h"

namespace host {
namespace {

void restBetweenLooks() {
  std::this_thread::sleep_for(std::chrono::milliseconds(2));
}

/// A common motion that has begun.
class FleetFollower {
 public:
  FleetFollower(std::deque<Member>& members, std::vector<StartMark> marks, std::int64_t startNs,
                bool allOrNone)
      : members_(members), marks_(std::move(marks)), startNs_(startNs), allOrNone_(allOrNone) {}

  int follow() {
    while (StopSignal::received() == 0) {
      bool isOver = true;
      for (std::size_t i = 0; i < members_.size(); ++i) {
        const Member::View view = members_[i].view();
        isOver = isOver && view.phase >= Member::Phase::over;
        noteOverruns(members_[i], view, marks_[i]);
        noteSilence(members_[i], view, marks_[i]);
        noteLoss(members_[i], view, marks_[i]);
      }
      if (isOver || isHeld_) {
        break;
      }
      restBetweenLooks();
    }
    return conclude();
  }

 private:
  /// Cycles that were passed over do not change where machine time is 0.
  void noteOverruns(const Member& member, const Member::View& view, StartMark& mark) const {
    if (mark.overruns && view.aliveNs > startNs_ + longestCycleNs({view.clock})) {
      if (view.overruns > *mark.overruns) {
        complain(fmt::format(
            "torvex: warning: {}: skipped {} near the start: it may have begun as many cycles "
            "late\n",
            visible(member.name()),
            counted(static_cast<std::uint64_t>(view.overruns - *mark.overruns), "cycle")));
      }
      mark.overruns.reset();
    }
  }

  /// One that has not told anything since before the start may be cut off, or stand still.
  void noteSilence(const Member& member, const Member::View& view, StartMark& mark) {
    const std::int64_t silentNs = bootNs() - view.aliveNs;
    if (mark.isSilenceSaid || view.phase != Member::Phase::committed || view.aliveNs > startNs_ ||
        silentNs <= mostSilentNs(view.clock)) {
      return;
    }
    mark.isSilenceSaid = true;
    complain(
        fmt::format("torvex: {}: {}: has not answered for {} ms, since before the start: it is not "
                    "known whether it has begun\n",
                    allOrNone_ ? "error" : "warning", visible(member.name()), silentNs / nsPerMs));
    if (allOrNone_) {
      holdAll();
    }
  }

  void noteLoss(const Member& member, const Member::View& view, StartMark& mark) {
    std::string what;
    if (view.phase == Member::Phase::gone && lost_.insert(member.name()).second) {
      what = "lost: its actuators ramp to rest when its lease ends";
      complain(shown(member.name(), view.outcome));
    } else if (view.played.isDisturbed() && lost_.insert(member.name()).second) {
      what = "it does not execute all of its motion: " + view.played.shortfall();
    } else if (view.phase == Member::Phase::committed && view.machineZeroNs != mark.zeroNs) {
      what = fmt::format("machine time was paused for {:g} ms: it is no longer in step",
                         static_cast<double>(view.machineZeroNs - mark.zeroNs) / 1e6);
      mark.zeroNs = view.machineZeroNs;
    }
    if (what.empty()) {
      return;
    }
    complain(fmt::format("torvex: error: {}: {}\n", visible(member.name()), what));
    status_ = shortfallStatus;
    if (allOrNone_) {
      holdAll();
    }
  }

  void holdAll() {
    status_ = shortfallStatus;
    if (!isHeld_) {
      isHeld_ = true;
      std::for_each(members_.begin(), members_.end(), [](Member& member) { member.hold(); });
      complain("torvex: all_or_none: holding the other machines\n");
    }
  }

  void sayWhoHasNotLeft() {
    for (const Member& member : members_) {
      const Member::Ending ending = member.view().ending.value_or(Member::Ending());
      if (ending.hold && ending.hold->status != okStatus) {
        complain(fmt::format("torvex: error: {}: not held: {}\n", visible(member.name()),
                             ending.hold->text));
      } else if (ending.hold) {
        complain(fmt::format("{}: held until 'torvex fleet release'\n", visible(member.name())));
      }
      if (!ending.hasLeft) {
        complain(
            fmt::format("torvex: warning: {}: has not confirmed the end of its motion; the end of "
                        "its lease or of the connection ends it\n",
                        visible(member.name())));
      }
    }
  }

  int conclude() {
    dismiss(members_);
    sayWhoHasNotLeft();
    if (const int signal = StopSignal::received()) {
      complain(fmt::format("torvex: stopped by signal {}; the actuators ramp to rest\n", signal));
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

  std::deque<Member>& members_;
  std::vector<StartMark> marks_;
  const std::int64_t startNs_;
  const bool allOrNone_;
  std::set<std::string> lost_;
  int status_ = okStatus;
  bool isHeld_ = false;
};

}  // namespace

int followFleet(std::deque<Member>& members, std::vector<StartMark> marks, std::int64_t startNs,
                bool allOrNone) {
  return FleetFollower(members, std::move(marks), startNs, allOrNone).follow();
}

void dismiss(std::deque<Member>& members) {
  std::for_each(members.begin(), members.end(), [](Member& member) { member.leave(); });
  while (!std::all_of(members.begin(), members.end(),
                      [](const Member& member) { return member.view().ending.has_value(); })) {
    restBetweenLooks();
  }
}

}  // namespace host
