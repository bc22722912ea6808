#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "host/base/usererror.h"

namespace host {

/// A value of a document: empty, a scalar, a list or a map. A reference into its `NodeTree`, which
/// must outlive it; without one, a list of nothing.
class Node {
 public:
  enum class Kind : std::uint8_t { null, scalar, list, map };

  Node() = default;

  [[nodiscard]] bool isNull() const { return kind() == Kind::null; }
  [[nodiscard]] bool isScalar() const { return kind() == Kind::scalar; }
  [[nodiscard]] bool isList() const { return kind() == Kind::list; }
  [[nodiscard]] bool isMap() const { return kind() == Kind::map; }

  /// The text of a scalar.
  [[nodiscard]] const std::string& scalar() const;
  /// Of a scalar: without quotes or a tag.
  [[nodiscard]] bool isPlain() const;
  /// Of a list or a map; else 0.
  [[nodiscard]] std::size_t size() const;
  [[nodiscard]] const std::vector<Node>& items() const;
  /// Keys and values of a map, in the order of the document.
  [[nodiscard]] std::vector<std::pair<Node, Node>> entries() const;
  /// The value of the first key of this name; none when there is none.
  [[nodiscard]] const Node* find(const std::string& key) const;

  [[nodiscard]] SourceLocation location() const;
  /// The way to it, as a JSON pointer: "" is the root, "/a/0" the first item of its "a".
  [[nodiscard]] std::string pointer() const;

 private:
  friend class NodeTree;
  struct Value;

  explicit Node(const Value& value) : value_(&value) {}
  [[nodiscard]] Kind kind() const;

  const Value* value_ = nullptr;
};

struct Node::Value {
  Kind kind = Kind::list;
  bool isPlain = false;
  /// Among the children of the parent.
  std::uint32_t position = 0;
  const Value* parent = nullptr;
  SourceLocation location;
  std::string scalar;
  /// Items; of a map, keys and values in turn.
  std::vector<Node> children;

  /// How a child is named in a pointer.
  [[nodiscard]] std::string token(std::size_t child) const;
  [[nodiscard]] std::string pointer() const;

  static const Value nothing;
};

/// The nodes of one document, from the root down.
class NodeTree {
 public:
  NodeTree() = default;

  NodeTree(const NodeTree&) = delete;
  NodeTree& operator=(const NodeTree&) = delete;

  [[nodiscard]] Node root() const;

  // To build it, in the order of the document: in a map, keys and values take turns. A list or a
  // map is open until it is closed.

  Node addNull(SourceLocation location);
  Node addScalar(std::string text, bool isPlain, SourceLocation location);
  Node open(Node::Kind kind, SourceLocation location);
  void close() { open_.pop_back(); }
  /// A node that stands elsewhere already.
  void addAgain(const Node& node);

  [[nodiscard]] std::size_t size() const { return values_.size(); }
  /// How many lists and maps are open.
  [[nodiscard]] std::size_t depth() const { return open_.size(); }
  /// Where the next node will be.
  [[nodiscard]] std::string nextPointer() const;

 private:
  Node::Value& add(Node::Kind kind, SourceLocation location);

  std::deque<Node::Value> values_;
  std::vector<Node::Value*> open_;
};

}  // namespace host
