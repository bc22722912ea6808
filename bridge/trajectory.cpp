#include "bridge/trajectory.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "host/base/clocks.h"
#include "host/base/counted.h"
#include "host/base/values.h"

namespace bridge {
namespace {

using host::Json;
using host::msPerSecond;
using host::nsPerMs;
using host::nsPerSecond;
using Point = trajectory_msgs_msg_dds__JointTrajectoryPoint_;
using Time = builtin_interfaces_msg_dds__Time_;

/// Of a request to the machine.
constexpr std::size_t mostBody = std::size_t{1} << 20;
/// Even of empty ones no more have room there, and while it is made each takes many times as much.
constexpr std::uint32_t mostPoints = 12'000;

double secondsOf(std::int64_t ns) {
  return static_cast<double>(ns) / static_cast<double>(nsPerSecond);
}

/// Exactly: single precision does not hold a machine time.
Json timeJson(std::int64_t seconds, std::int64_t ns) {
  return {{"sec", seconds}, {"nanosec", ns}};
}

Json numbersJson(const dds_sequence_double& numbers, const char* field, std::size_t point) {
  Json list = Json::array();
  for (std::uint32_t i = 0; i < numbers._length; ++i) {
    const double number = numbers._buffer[i];
    const auto single = static_cast<float>(number);
    if (!std::isfinite(number) || !std::isfinite(single)) {
      throw Unfit(fmt::format("{} {} of point {} is {:g}, and must be a finite number", field, i,
                              point, number));
    }
    // An actuator that holds whole numbers takes no others.
    const bool isWhole = std::abs(number) <= double{std::numeric_limits<std::int32_t>::max()} &&
                         std::trunc(number) == number;
    list.push_back(isWhole ? Json(static_cast<std::int64_t>(number)) : Json(single));
  }
  return list;
}

Json pointJson(const Point& point, std::size_t number) {
  Json json = {
      {"positions", numbersJson(point.positions_, "position", number)},
      {"velocities", numbersJson(point.velocities_, "velocity", number)},
      {"accelerations", numbersJson(point.accelerations_, "acceleration", number)},
      {"time_from_start", timeJson(point.time_from_start_.sec_, point.time_from_start_.nanosec_)}};
  if (point.effort_._length > 0) {
    json["effort"] = {0};  // the machine notes that it ignores it
  }
  return json;
}

Json namesJson(const dds_sequence_string& names, std::size_t axes) {
  constexpr std::size_t longest = 256;
  if (names._length == 0 || names._length > axes) {
    throw Unfit(fmt::format("it is for {}; the machine has {}",
                            host::counted(names._length, "joint"),
                            host::counted(axes, "actuator")));
  }
  Json list = Json::array();
  for (std::uint32_t i = 0; i < names._length; ++i) {
    const std::string_view name = names._buffer[i] == nullptr ? "" : names._buffer[i];
    if (name.size() > longest) {
      throw Unfit(fmt::format("the name of joint {} is longer than {} bytes", i, longest));
    }
    list.push_back(std::string(name));
  }
  return list;
}

Json pointsJson(const JointTrajectory& message) {
  if (message.points_._length > mostPoints) {
    throw Unfit(fmt::format("it has {} points, more than {}", message.points_._length, mostPoints));
  }
  Json points = Json::array();
  for (std::uint32_t i = 0; i < message.points_._length; ++i) {
    points.push_back(pointJson(message.points_._buffer[i], i));
  }
  return points;
}

bool isNow(const Time& stamp) {
  return stamp.sec_ == 0 && stamp.nanosec_ == 0;
}

/// The machine time of a machine that stands still says nothing, and what is meant for now would
/// begin when it goes on.
void refuseStandstill(const Arrival& arrival) {
  constexpr std::int64_t patienceNs = 200 * nsPerMs;
  constexpr std::int64_t fewCycles = 10;
  const std::int64_t ageNs = arrival.nowNs - arrival.cycleNs;
  if (arrival.cycleNs == 0) {
    throw Unfit("the machine has not begun its first cycle");
  }
  if (ageNs > std::max(patienceNs, fewCycles * arrival.periodNs)) {
    throw Unfit(fmt::format("the machine's cycles are stopped: the last one was {:.3f} s ago",
                            secondsOf(ageNs)));
  }
}

/// Machine time.
Json beginOf(const Time& stamp, const Arrival& arrival) {
  if (stamp.nanosec_ >= nsPerSecond) {
    throw Unfit(fmt::format("its stamp has {} nanoseconds, at most 999999999", stamp.nanosec_));
  }
  const std::int64_t stampNs = stamp.sec_ * nsPerSecond + stamp.nanosec_;
  const std::int64_t aheadNs = stampNs - arrival.nowNs;
  if (aheadNs < 0) {
    throw Unfit(
        fmt::format("it was to begin {:.3f} s ago; a stamp of 0 means now", secondsOf(-aheadNs)));
  }
  if (aheadNs > arrival.horizonNs) {
    throw Unfit(fmt::format("it is to begin in {:.3f} s, beyond the horizon of {:g} s",
                            secondsOf(aheadNs), secondsOf(arrival.horizonNs)));
  }
  constexpr std::int64_t half = nsPerMs / 2;
  const std::int64_t atMs = arrival.cycleMs + (stampNs - arrival.cycleNs + half) / nsPerMs;
  return timeJson(atMs / msPerSecond, atMs % msPerSecond * nsPerMs);
}

}  // namespace

bool isStop(const JointTrajectory& message) {
  return message.points_._length == 0;
}

std::string requestOf(const JointTrajectory& message, const Arrival& arrival) {
  Json names = namesJson(message.joint_names_, arrival.axes);
  Json batch = Json::object();
  if (isStop(message)) {
    batch["stop"] = std::move(names);  // at once
  } else {
    refuseStandstill(arrival);
    batch["mode"] = "replace";
    batch["trajectory"] = {{"joint_names", std::move(names)}, {"points", pointsJson(message)}};
    if (!isNow(message.header_.stamp_)) {
      batch["at"] = beginOf(message.header_.stamp_, arrival);
    }
  }
  Json batches = Json::array();
  batches.push_back(std::move(batch));
  std::string body =
      Json{{"batches", std::move(batches)}}.dump(-1, ' ', false, Json::error_handler_t::replace);
  if (body.size() > mostBody) {
    throw Unfit(
        fmt::format("it has {} bytes as JSON; the machine takes {}", body.size(), mostBody));
  }
  return body;
}

std::string summaryOf(const JointTrajectory& message) {
  const Time& stamp = message.header_.stamp_;
  if (isStop(message)) {
    return fmt::format("a stop of {}", host::counted(message.joint_names_._length, "joint"));
  }
  return fmt::format(
      "{} for {}, {}", host::counted(message.points_._length, "point"),
      host::counted(message.joint_names_._length, "joint"),
      isNow(stamp) ? "from now on" : fmt::format("from {}.{:09} on", stamp.sec_, stamp.nanosec_));
}

}  // namespace bridge
