#include "host/input/motionwrappers.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

namespace host {
namespace {

using Names = std::vector<std::string_view>;
using Entry = std::pair<std::string, Node>;

const Names batchKeys = {"batches", "lists"};
const Names trajectoryKeys = {"joint_names", "points"};
const Names wrapperKeys = {"goal", "trajectory", "joint_trajectory", "play_motion",
                           "ros__parameters"};

bool isOneOf(const Names& names, const std::string& key) {
  return std::find(names.begin(), names.end(), key) != names.end();
}

std::vector<Entry> entriesOf(const Node& map) {
  std::vector<Entry> entries;
  for (const auto& entry : map.entries()) {
    entries.emplace_back(entry.first.isScalar() ? entry.first.scalar() : "", entry.second);
  }
  return entries;
}

bool holdsAny(const Node& node, const Names& names) {
  if (!node.isMap()) {
    return false;
  }
  const std::vector<Entry> entries = entriesOf(node);
  return std::any_of(entries.begin(), entries.end(),
                     [&names](const Entry& entry) { return isOneOf(names, entry.first); });
}

bool isContent(const Node& node) {
  return holdsAny(node, batchKeys) || holdsAny(node, trajectoryKeys) || holdsAny(node, {"motions"});
}

/// Whether a map below this key leads on: names of nodes stand before what is known.
bool isNodeName(const Entry& entry, int depth = 3) {
  if (!entry.second.isMap() || entry.first == "header") {
    return false;
  }
  if (isContent(entry.second) || holdsAny(entry.second, wrapperKeys)) {
    return true;
  }
  const std::vector<Entry> inner = entriesOf(entry.second);
  // Names of nodes stand alone; anything wider is no namespace.
  return depth > 0 && inner.size() == 1 && isNodeName(inner.front(), depth - 1);
}

std::vector<Entry> wrappedIn(const Node& node) {
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
Node onlyOneOf(const Document& document, const Entry& entry) {
  if (entry.first != "trajectory" || !entry.second.isList()) {
    return entry.second;
  }
  if (entry.second.size() != 1) {
    document.fail(entry.second, fmt::format("trajectory has {} entries; keep one in the file",
                                            entry.second.size()));
  }
  return entry.second.items()[0];
}

void noteIgnored(const Node& node, const std::string& followed, MotionContent& content) {
  for (const auto& [key, value] : entriesOf(node)) {
    const bool isEmpty = value.isScalar() ? value.scalar().empty() : value.size() == 0;
    if (key != followed && key != "header" && !isEmpty) {
      content.ignored.push_back(key);
    }
  }
}

}  // namespace

MotionContent unwrapMotion(const Document& document, const Node& node) {
  MotionContent content;
  content.node = node;
  constexpr int mostWrappers = 32;
  for (int depth = 0; depth < mostWrappers && content.node.isMap() && !isContent(content.node);
       ++depth) {
    const std::vector<Entry> wrapped = wrappedIn(content.node);
    if (wrapped.empty()) {
      break;
    }
    if (wrapped.size() > 1) {
      document.fail(content.node,
                    fmt::format("there are motions under '{}' and under '{}'; keep one of them",
                                wrapped[0].first, wrapped[1].first));
    }
    noteIgnored(content.node, wrapped.front().first, content);
    content.node = onlyOneOf(document, wrapped.front());
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
