#include "host/cli/fleet/clockwatch.h"

#include <cstdlib>
#include <nlohmann/json.hpp>

#include "host/base/clocks.h"
#include "host/client/answer.h"

namespace host {
namespace {

/// A stamp that sums of a few of them do not overflow. Throws `NoMachine`.
std::int64_t stampIn(const Json& answer, const char* member) {
  constexpr std::int64_t most = std::int64_t{1} << 60;
  const Json& stamp = memberOf(answer, member);
  if (!stamp.is_number_integer() || stamp.get<std::int64_t>() > most ||
      stamp.get<std::int64_t>() < -most) {
    throw NoMachine(std::string("the machine's answer is not a clock: ") + member + " is missing");
  }
  return stamp.get<std::int64_t>();
}

}  // namespace

void ClockWatch::ask(DoorClient& door) {
  constexpr std::int64_t mostCycleMs = 1000;
  constexpr std::int64_t cyclesOnTime = 3;
  // Sums of it in nanoseconds do not overflow.
  constexpr std::int64_t mostMachineMs = std::int64_t{1} << 40;
  ClockExchange exchange;
  exchange.askedNs = bootNs();
  const Json answer = door.get("/v1/clock");
  exchange.answeredNs = bootNs();
  exchange.receivedNs = stampIn(answer, "received_ns");
  exchange.sentNs = stampIn(answer, "sent_ns");
  const std::int64_t cycleMs = stampIn(answer, "cycle_ms");
  const std::int64_t machineMs = stampIn(answer, "machine_ms");
  const std::int64_t tookNs = exchange.answeredNs - exchange.askedNs;
  if (cycleMs < 1 || cycleMs > mostCycleMs || std::abs(machineMs) > mostMachineMs ||
      exchange.sentNs < exchange.receivedNs ||
      exchange.sentNs - exchange.receivedNs > tookNs + 2 * ClockFilter::driftNs(tookNs)) {
    throw NoMachine("the machine's clock is invalid: its cycle or its stamps are wrong");
  }
  machineMs_ = machineMs;
  machineZeroNs_ = stampIn(answer, "machine_zero_ns");
  overruns_ = stampIn(answer, "overruns");
  if (const std::string instance = textOf(answer, "instance"); instance != instance_) {
    filter_ = ClockFilter();
    instance_ = instance;
  }
  contradictions_ += filter_.add(exchange) ? 0 : 1;
  cycleMs_ = cycleMs;
  askedNs_ = exchange.askedNs;
  isHeldUp_ = exchange.sentNs - machineZeroNs_ > (machineMs_ + cyclesOnTime * cycleMs_) * nsPerMs;
}

void ClockWatch::askOften(DoorClient& door) {
  constexpr int times = 16;
  constexpr std::int64_t longestNs = 1000 * nsPerMs;
  const std::int64_t beginNs = bootNs();
  for (int i = 0; i < times && bootNs() < beginNs + longestNs; ++i) {
    ask(door);
  }
}

ClockOffset ClockWatch::offset() const {
  return filter_.at(bootNs()).value_or(ClockOffset());
}

FleetClock ClockWatch::clock() const {
  const ClockOffset now = offset();
  return {machineZeroNs_ - now.offsetNs, now.boundNs, cycleMs_};
}

}  // namespace host
