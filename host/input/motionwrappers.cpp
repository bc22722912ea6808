#include "host/input/motionwrappers.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

namespace host {
namespace {

using Names = std::vector<std::string_view>;
using Entry = std::pair<std::string, YAML::Node>;

const Names batchKeys = {"batches", "lists"};
const Names trajectoryKeys = {"joint_names", "points"};
const Names wrapperKeys = {"goal", "trajectory", "joint_trajectory", "play_motion",
                           "ros__parameters"};

bool isOneOf(const Names& names, const std::string& key) {
  return std::find(names.begin(), names.end(), key) != names.end();
}

std::vector<Entry> entriesOf(const YAML::Node& map) {
  std::vector<Entry> entries;
  for (const auto& entry : map) {
    entries.emplace_back(entry.first.IsScalar() ? entry.first.Scalar() : "", entry.second);
  }
  return entries;
}

bool holdsAny(const YAML::Node& node, const Names& names) {
  if (!node.IsMap()) {
    return false;
  }
  const std::vector<Entry> entries = entriesOf(node);
  return std::any_of(entries.begin(), entries.end(),
                     [&names](const Entry& entry) { return isOneOf(names, entry.first); });
}

bool isContent(const YAML::Node& node) {
  return holdsAny(node, batchKeys) || holdsAny(node, trajectoryKeys) || holdsAny(node, {"motions"});
}

/// Whether a map below this key leads on: names of nodes stand before what is known.
bool isNodeName(const Entry& entry, int depth = 3) {
  if (!entry.second.IsMap() || entry.first == "header") {
    return false;
  }
  if (isContent(entry.second) || holdsAny(entry.second, wrapperKeys)) {
    return true;
  }
  const std::vector<Entry> inner = entriesOf(entry.second);
  // Names of nodes stand alone; anything wider is no namespace.
  return depth > 0 && inner.size() == 1 && isNodeName(inner.front(), depth - 1);
}

std::vector<Entry> wrappedIn(const YAML::Node& node) {
  const std::vector<Entry> entries = entriesOf(node);
  std::vector<Entry> wrapped;
  std::copy_if(entries.begin(), entries.end(), std::back_inserter(wrapped),
               [](const Entry& entry) { return isOneOf(wrapperKeys, entry.first); });
  if (wrapped.empty()) {
    std::copy_if(entries.begin(), entries.end(), std::back_inserter(wrapped),
                 [](const Entry& entry) { return isNodeName(entry); });
  }
  return wrapped;
}

/// A displayed trajectory is a list of them.
YAML::Node onlyOneOf(const YamlFile& yaml, const Entry& entry) {
  if (entry.first != "trajectory" || !entry.second.IsSequence()) {
    return entry.second;
  }
  if (entry.second.size() != 1) {
    yaml.fail(entry.second, fmt::format("trajectory holds {} of them; keep one in the file",
                                        entry.second.size()));
  }
  return entry.second[0];
}

void noteIgnored(const YAML::Node& node, const std::string& followed, MotionContent& content) {
  for (const auto& [key, value] : entriesOf(node)) {
    const bool isEmpty = value.IsScalar() ? value.Scalar().empty() : value.size() == 0;
    if (key != followed && key != "header" && !isEmpty) {
      content.ignored.push_back(key);
    }
  }
}

}  // namespace

MotionContent unwrapMotion(const YamlFile& yaml, const YAML::Node& node) {
  MotionContent content;
  content.node.reset(node);
  constexpr int mostWrappers = 32;
  for (int depth = 0; depth < mostWrappers && content.node.IsMap() && !isContent(content.node);
       ++depth) {
    const std::vector<Entry> wrapped = wrappedIn(content.node);
    if (wrapped.empty()) {
      break;
    }
    if (wrapped.size() > 1) {
      yaml.fail(content.node,
                fmt::format("motions stand below '{}' and below '{}'; keep one of them",
                            wrapped[0].first, wrapped[1].first));
    }
    noteIgnored(content.node, wrapped.front().first, content);
    content.node.reset(onlyOneOf(yaml, wrapped.front()));
  }
  if (holdsAny(content.node, batchKeys)) {
    content.kind = MotionContent::Kind::batches;
  } else if (holdsAny(content.node, {"motions"})) {
    content.kind = MotionContent::Kind::namedMotions;
    noteIgnored(content.node, "motions", content);
  }
  return content;
}

}  // namespace host
