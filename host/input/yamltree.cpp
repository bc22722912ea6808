#include "host/input/yamltree.h"

#include <fmt/format.h>
#include <yaml-cpp/depthguard.h>
#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/yaml.h>

#include <cstddef>
#include <map>
#include <sstream>

namespace host {
namespace {

/// A node takes some 150 bytes.
constexpr std::size_t mostNodes = 4'000'000;

/// The parser counts from 0; where it does not know, the text's begin.
SourceLocation locationOf(const YAML::Mark& mark) {
  return mark.is_null() ? SourceLocation{1, 1}
                        : SourceLocation{static_cast<std::size_t>(mark.line) + 1,
                                         static_cast<std::size_t>(mark.column) + 1};
}

class Builder : public YAML::EventHandler {
 public:
  Builder(const std::string& path, NodeTree& tree) : path_(path), tree_(tree) {}

  [[nodiscard]] bool foundDocument() const { return documents_ > 0; }

  void OnDocumentStart(const YAML::Mark& mark) override {
    // The parser finds nothing before a stray comma, again and again.
    if (documents_ > 0 && mark.pos == begin_) {
      fail(mark, "not readable as YAML: no value begins like this");
    }
    if (documents_ == 2) {
      failAsSecond(mark);
    }
    ++documents_;
    begin_ = mark.pos;
  }
  void OnDocumentEnd() override {}
  void OnNull(const YAML::Mark& mark, YAML::anchor_t anchor) override {
    countNode(mark);
    if (documents_ == 1) {
      anchored_[anchor] = tree_.addNull(locationOf(mark));
    }
  }
  void OnAlias(const YAML::Mark& mark, YAML::anchor_t anchor) override {
    takeContent(mark);
    tree_.addAgain(anchored_[anchor]);
  }
  void OnScalar(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor,
                const std::string& value) override {
    takeContent(mark);
    anchored_[anchor] = tree_.addScalar(value, tag == "?", locationOf(mark));
  }
  void OnSequenceStart(const YAML::Mark& mark, const std::string& /*tag*/, YAML::anchor_t anchor,
                       YAML::EmitterStyle::value /*style*/) override {
    takeContent(mark);
    anchored_[anchor] = tree_.open(Node::Kind::list, locationOf(mark));
  }
  void OnSequenceEnd() override { tree_.close(); }
  void OnMapStart(const YAML::Mark& mark, const std::string& /*tag*/, YAML::anchor_t anchor,
                  YAML::EmitterStyle::value /*style*/) override {
    takeContent(mark);
    anchored_[anchor] = tree_.open(Node::Kind::map, locationOf(mark));
  }
  void OnMapEnd() override { tree_.close(); }

 private:
  [[noreturn]] void fail(const YAML::Mark& mark, const std::string& what) const {
    throw UserError(path_, locationOf(mark), what);
  }
  [[noreturn]] void failAsSecond(const YAML::Mark& mark) const {
    fail(mark, "the file holds more than one document");
  }

  void takeContent(const YAML::Mark& mark) {
    if (documents_ == 2) {
      failAsSecond(mark);
    }
    countNode(mark);
  }

  /// Aliases count as well.
  void countNode(const YAML::Mark& mark) {
    if (++nodes_ > mostNodes) {
      fail(mark, fmt::format("the file up to here holds more than {} values", mostNodes));
    }
  }

  const std::string& path_;
  NodeTree& tree_;
  /// By their anchors; 0 is that of all that have none.
  std::map<YAML::anchor_t, Node> anchored_;
  int documents_ = 0;
  int begin_ = 0;
  std::size_t nodes_ = 0;
};

}  // namespace

void readYamlTree(const std::string& path, const std::string& text, NodeTree& tree) {
  try {
    std::istringstream stream(text);
    YAML::Parser parser(stream);
    Builder builder(path, tree);
    while (parser.HandleNextDocument(builder)) {
    }
    if (!builder.foundDocument()) {
      throw UserError(path, {1, 1}, "the file is empty");
    }
  } catch (const YAML::DeepRecursion& error) {
    throw UserError(path, locationOf(error.mark), "not readable as YAML: nested too deeply");
  } catch (const YAML::Exception& error) {
    throw UserError(path, locationOf(error.mark),
                    fmt::format("not readable as YAML: {}", error.msg));
  }
}

}  // namespace host
