#include "host/server/controlreader.h"

#include <fmt/format.h>

#include <numeric>
#include <set>

#include "host/base/visible.h"
#include "host/input/requestreader.h"

namespace host {
namespace {

std::vector<int> allAxes(const ActuatorNames& names) {
  std::vector<int> axes(names.machine().description.actuators.size());
  std::iota(axes.begin(), axes.end(), 0);
  return axes;
}

/// "all", or a list of names or keys.
std::vector<int> axesAt(const Document& document, const Node& node, const ActuatorNames& names) {
  if (node.isScalar() && node.scalar() == "all") {
    return allAxes(names);
  }
  if (!node.isList() || node.size() == 0) {
    document.fail(node, "axes: a list of at least one actuator is needed, or 'all'");
  }
  std::set<int> axes;
  for (const Node& entry : node.items()) {
    document.attempt([&] {
      const std::string name = document.name(entry, "an axis");
      const int axis = names.find(name);
      if (axis < 0) {
        document.fail(entry, fmt::format("machine '{}' has no actuator '{}'",
                                         visible(names.machine().name), visible(name)));
      }
      axes.insert(axis);
    });
  }
  return {axes.begin(), axes.end()};
}

void readLength(const Document& document, const Document::Fields& fields,
                std::optional<std::int64_t>& leaseMs) {
  document.field(fields, "lease_ms", [&](const Node& node) {
    leaseMs = static_cast<std::int64_t>(document.wholeNumber(node, "lease_ms", 50, 3'600'000));
  });
}

void readLease(const Document& document, const Document::Fields& fields, Registration& wanted) {
  document.field(fields, "priority", [&](const Node& node) {
    wanted.enrolment.priority = static_cast<int>(document.wholeNumber(node, "priority", 0, 100));
  });
  readLength(document, fields, wanted.enrolment.leaseMs);
  document.field(fields, "on_loss", [&](const Node& node) {
    const std::optional<LossRule> rule = valueOf(lossRuleWords, document.text(node, "on_loss"));
    if (!rule) {
      document.fail(node, "on_loss must be stop or run_out");
    }
    wanted.enrolment.onLoss = *rule;
  });
  document.field(fields, "ends_with_connection", [&](const Node& node) {
    wanted.endsWithConnection = document.truth(node, "ends_with_connection");
  });
}

}  // namespace

Registration readRegistration(const std::string& text, const ActuatorNames& names) {
  constexpr std::size_t longestName = 64;
  Registration wanted;
  wanted.enrolment.priority = 50;
  readRequest(text, "a registration",
              {"name", "axes", "priority", "lease_ms", "on_loss", "ends_with_connection"},
              [&](const Document& document, const Document::Fields& fields) {
                document.requiredField(fields, document.root(), "name", [&](const Node& node) {
                  wanted.enrolment.name = document.name(node, "name");
                  if (wanted.enrolment.name.size() > longestName) {
                    document.fail(node, fmt::format("name is longer than {} bytes", longestName));
                  }
                });
                document.requiredField(fields, document.root(), "axes", [&](const Node& node) {
                  wanted.enrolment.axes = axesAt(document, node, names);
                });
                readLease(document, fields, wanted);
              });
  return wanted;
}

std::optional<std::int64_t> readRenewal(const std::string& text) {
  std::optional<std::int64_t> leaseMs;
  if (!text.empty()) {
    readRequest(text, "a renewal", {"lease_ms"},
                [&](const Document& document, const Document::Fields& fields) {
                  readLength(document, fields, leaseMs);
                });
  }
  return leaseMs;
}

std::vector<int> readAxes(const std::string& text, const ActuatorNames& names) {
  std::vector<int> axes = allAxes(names);
  if (!text.empty()) {
    readRequest(text, "the request", {"axes"},
                [&](const Document& document, const Document::Fields& fields) {
                  document.field(fields, "axes",
                                 [&](const Node& node) { axes = axesAt(document, node, names); });
                });
  }
  return axes;
}

}  // namespace host
