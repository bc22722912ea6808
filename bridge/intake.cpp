#include "bridge/intake.h"

#include <fmt/format.h>

#include <exception>
#include <utility>

#include "bridge/output.h"
#include "host/base/clocks.h"
#include "host/base/counted.h"

namespace bridge {
namespace {

constexpr std::int64_t oldNs = host::nsPerSecond;

}  // namespace

Intake::Intake(Topics& topics)
    : topics_(topics),
      lookedNs_(host::bootNs()),
      freshFromNs_(lookedNs_),
      thread_([this] { run(); }) {}

Intake::~Intake() {
  isOver_ = true;
  thread_.join();
}

void Intake::handTo(Use use) {
  const std::lock_guard lock(mutex_);
  use_ = std::move(use);
}

bool Intake::isFresh() {
  const std::int64_t now = host::bootNs();
  if (now - lookedNs_ > oldNs) {
    freshFromNs_ = now + oldNs;
  }
  lookedNs_ = now;
  return now >= freshFromNs_;
}

void Intake::run() {
  constexpr int lookEveryMs = 100;
  while (!isOver_ && topics_.trajectories) {
    const std::uint32_t lost = topics_.trajectories->take(lookEveryMs, [this](const void* message) {
      hand(*static_cast<const JointTrajectory*>(message));
    });
    isFresh();
    if (lost > 0) {
      topics_.tellRefusal(host::counted(lost, "trajectory"), "lost on the network");
    }
  }
}

void Intake::hand(const JointTrajectory& message) {
  const bool isFit = isFresh() || isStop(message);
  const std::lock_guard lock(mutex_);
  try {
    if (!use_) {
      throw Unfit("the machine does not run, or does not answer");
    }
    if (!isFit) {
      throw Unfit("the bridge was stopped, so it may be old");
    }
    use_(message);
  } catch (const std::exception& why) {
    topics_.tellRefusal(summaryOf(message), why.what());
  }
}

}  // namespace bridge
