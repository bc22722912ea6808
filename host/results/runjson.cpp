#include "host/results/runjson.h"

#include <nlohmann/json.hpp>

#include "host/base/values.h"
#include "host/motion/limits.h"

namespace host {
namespace {

constexpr int format = 2;

Json quantilesJson(const Histogram& histogram) {
  return {{"p50", histogram.quantile(0.5)},
          {"p99", histogram.quantile(0.99)},
          {"p99.9", histogram.quantile(0.999)},
          {"max", histogram.maximum()}};
}

Json valueJson(const AxisResult& axis, const hal::AttrGeneric& value) {
  return axis.actuator.typeCode == hal::floatTypeCode ? Json(value.asFloat) : Json(value.asInt);
}

Json axisJson(const AxisOutcome& outcome) {
  const AxisResult& axis = outcome.result;
  const PointCounts& counts = axis.counts;
  return {{"name", axis.actuator.name},
          {"verdict", nameOf(outcome.verdict)},
          {"points", counts.points},
          {"reached", counts.reached},
          {"cleared", counts.cleared},
          {"refused", counts.refused},
          {"left", counts.left()},
          {"late", counts.late},
          {"limited", counts.limited},
          {"external_writes", axis.externalWrites},
          {"target", outcome.asked ? valueJson(axis, *outcome.asked) : Json()},
          {"command", valueJson(axis, axis.command)},
          {"measured", axis.measured ? Json(static_cast<float>(*axis.measured)) : Json()}};
}

Json pathOrNull(const std::string& path) {
  return path.empty() ? Json() : Json(path);
}

}  // namespace

std::string runJson(const RunOptions& options, const RunResult& result, const Plan& plan,
                    const Outcome& outcome) {
  const CycleCount& counts = result.counts;
  const PaceCount& pace = result.pace;
  const bool realtime = options.session.clock == Clock::realtime;
  Json axes = Json::array();
  for (const AxisOutcome& axis : outcome.axes) {
    axes.push_back(axisJson(axis));
  }
  const Json object = {{"format", format},
                       {"machine", outcome.machine},
                       {"machine_file", options.machinePath},
                       {"motions", options.motionPaths},
                       {"pool", options.session.poolName},
                       {"clock", realtime ? "realtime" : "simulated"},
                       {"cycle_ms", plan.schedule.cycleMs},
                       {"approach_ms", plan.schedule.approachMs},
                       {"duration_ms", result.durationMs},
                       {"cycles", std::uint64_t{counts.cycles}},
                       {"overruns", pace.overruns},
                       {"stalls", pace.stalls},
                       {"stalled_ms", pace.stalledMs},
                       {"stands", pace.stands},
                       {"latency_ns", realtime ? quantilesJson(counts.latencies) : Json()},
                       {"cycle_duration_ns", quantilesJson(counts.durations)},
                       {"stretched", stretchedJson(outcome.stretched)},
                       {"axes", axes},
                       {"outputs",
                        {{"trace", pathOrNull(options.tracePath)},
                         {"dropped_trace_rows", outcome.droppedTraceRows},
                         {"recording", pathOrNull(options.recording.path)},
                         {"dropped_recording_rows", outcome.droppedRecordingRows},
                         {"ring_files", outcome.ringFiles},
                         {"ring_left_out", outcome.ringLeftOut},
                         {"dropped_ring_rows", outcome.droppedRingRows},
                         {"picture", pathOrNull(options.plotPath)},
                         {"exports", outcome.exports}}},
                       {"warnings", findingsJson(outcome.warnings)},
                       {"errors", findingsJson(outcome.errors)},
                       {"signal", outcome.signal == 0 ? Json() : Json(outcome.signal)}};
  return printed(object, 2) + "\n";
}

}  // namespace host
