#include "host/input/node.h"

#include <utility>

namespace host {

const Node::Value Node::Value::nothing;

std::string Node::Value::token(std::size_t child) const {
  if (kind != Kind::map) {
    return std::to_string(child);
  }
  std::string escaped;
  for (const char byte : children[child - child % 2].scalar()) {
    escaped += byte == '~' ? "~0" : byte == '/' ? "~1" : std::string(1, byte);
  }
  return escaped;
}

std::string Node::Value::pointer() const {
  std::string pointer;
  for (const Value* value = this; value->parent != nullptr; value = value->parent) {
    pointer.insert(0, "/" + value->parent->token(value->position));
  }
  return pointer;
}

Node::Kind Node::kind() const {
  return value_ == nullptr ? Kind::list : value_->kind;
}

const std::string& Node::scalar() const {
  return value_ == nullptr ? Value::nothing.scalar : value_->scalar;
}

bool Node::isPlain() const {
  return value_ != nullptr && value_->isPlain;
}

std::size_t Node::size() const {
  return isMap() ? items().size() / 2 : items().size();
}

const std::vector<Node>& Node::items() const {
  return value_ == nullptr ? Value::nothing.children : value_->children;
}

std::vector<std::pair<Node, Node>> Node::entries() const {
  std::vector<std::pair<Node, Node>> entries;
  entries.reserve(size());
  for (std::size_t i = 0; i + 1 < items().size(); i += 2) {
    entries.emplace_back(items()[i], items()[i + 1]);
  }
  return entries;
}

const Node* Node::find(const std::string& key) const {
  for (std::size_t i = 0; i + 1 < items().size(); i += 2) {
    if (items()[i].isScalar() && items()[i].scalar() == key) {
      return &items()[i + 1];
    }
  }
  return nullptr;
}

SourceLocation Node::location() const {
  return value_ == nullptr ? SourceLocation() : value_->location;
}

std::string Node::pointer() const {
  return value_ == nullptr ? "" : value_->pointer();
}

Node NodeTree::root() const {
  return values_.empty() ? Node() : Node(values_.front());
}

Node::Value& NodeTree::add(Node::Kind kind, SourceLocation location) {
  Node::Value& value = values_.emplace_back();
  value.kind = kind;
  value.location = location;
  if (!open_.empty()) {
    value.parent = open_.back();
    value.position = static_cast<std::uint32_t>(open_.back()->children.size());
    open_.back()->children.push_back(Node(value));
  }
  return value;
}

Node NodeTree::addNull(SourceLocation location) {
  return Node(add(Node::Kind::null, location));
}

Node NodeTree::addScalar(std::string text, bool isPlain, SourceLocation location) {
  Node::Value& value = add(Node::Kind::scalar, location);
  value.scalar = std::move(text);
  value.isPlain = isPlain;
  return Node(value);
}

Node NodeTree::open(Node::Kind kind, SourceLocation location) {
  Node::Value& value = add(kind, location);
  open_.push_back(&value);
  return Node(value);
}

void NodeTree::addAgain(const Node& node) {
  open_.back()->children.push_back(node);
}

std::string NodeTree::nextPointer() const {
  if (open_.empty()) {
    return "";
  }
  const Node::Value& parent = *open_.back();
  const std::size_t child = parent.children.size();
  const bool isKey = parent.kind == Node::Kind::map && child % 2 == 0;
  return parent.pointer() + (isKey ? "" : "/" + parent.token(child));
}

}  // namespace host
