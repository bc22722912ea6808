#include "host/input/jsontree.h"

#include <fmt/format.h>

#include <cstddef>
#include <nlohmann/json.hpp>
#include <utility>

#include "host/base/textfile.h"

namespace host {
namespace {

using Parsed = nlohmann::json;

/// A node takes some 150 bytes.
constexpr std::size_t mostNodes = 400'000;
constexpr std::size_t mostDepth = 64;

/// Takes what the parser finds; keeps the texts of numbers, as they stand there.
class Builder : public nlohmann::json_sax<Parsed> {
 public:
  Builder(const std::string& text, NodeTree& tree) : text_(text), tree_(tree) {}

  bool null() override {
    count();
    tree_.addNull({});
    return true;
  }
  bool boolean(bool value) override { return plain(value ? "true" : "false"); }
  bool number_integer(number_integer_t value) override { return plain(std::to_string(value)); }
  bool number_unsigned(number_unsigned_t value) override { return plain(std::to_string(value)); }
  bool number_float(number_float_t /*value*/, const string_t& text) override { return plain(text); }
  bool string(string_t& value) override {
    count();
    tree_.addScalar(std::move(value), false, {});
    return true;
  }
  bool binary(binary_t& /*value*/) override { return false; }
  bool key(string_t& value) override { return string(value); }
  bool start_object(std::size_t /*size*/) override { return open(Node::Kind::map); }
  bool end_object() override { return close(); }
  bool start_array(std::size_t /*size*/) override { return open(Node::Kind::list); }
  bool end_array() override { return close(); }

  bool parse_error(std::size_t position, const std::string& /*token*/,
                   const nlohmann::detail::exception& /*error*/) override {
    const SourceLocation location = LineIndex(text_).at(position == 0 ? 0 : position - 1);
    fail(fmt::format("not readable as JSON at line {}, column {}", location.line, location.column));
  }

 private:
  [[noreturn]] void fail(const std::string& what) const {
    throw UserError(tree_.nextPointer(), {}, what);
  }

  bool plain(std::string text) {
    count();
    tree_.addScalar(std::move(text), true, {});
    return true;
  }

  bool open(Node::Kind kind) {
    count();
    if (tree_.depth() == mostDepth) {
      fail("nested too deeply");
    }
    tree_.open(kind, {});
    return true;
  }

  bool close() {
    tree_.close();
    return true;
  }

  void count() const {
    if (tree_.size() == mostNodes) {
      fail(fmt::format("more than {} values up to here", mostNodes));
    }
  }

  const std::string& text_;
  NodeTree& tree_;
};

}  // namespace

void readJsonTree(const std::string& text, NodeTree& tree) {
  Builder builder(text, tree);
  Parsed::sax_parse(text, &builder);
}

}  // namespace host
