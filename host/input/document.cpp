#include "host/input/document.h"

#include <fmt/format.h>

#include <cmath>

#include "host/base/textfile.h"
#include "host/input/jsontree.h"
#include "host/input/yamltree.h"

namespace host {
namespace {

void load(const std::string& path, const std::string& text, Document::Format format,
          NodeTree& tree) {
  if (text.size() > Document::maxBytes) {
    throw UserError(path, {}, fmt::format("is longer than {} bytes", Document::maxBytes));
  }
  format == Document::Format::yaml ? readYamlTree(path, text, tree) : readJsonTree(text, tree);
}

}  // namespace

Document::Document(const std::string& path, const std::string& text, ErrorCollector& errors,
                   Format format)
    : path_(path), format_(format), errors_(errors) {
  load(path, text, format, tree_);
}

FileLocation Document::at(const Node& node) const {
  return format_ == Format::yaml ? FileLocation{path_, node.location()}
                                 : FileLocation{node.pointer(), {}};
}

UserError Document::error(const Node& node, const std::string& what) const {
  return {at(node), what};
}

void Document::fail(const Node& node, const std::string& what) const {
  throw error(node, what);
}

void Document::report(const Node& node, const std::string& what) const {
  errors_.add(error(node, what));
}

void Document::stop(const Node& node, const std::string& what) const {
  errors_.stop(error(node, what));
}

Document::Fields Document::fields(const Node& node, const std::string& what,
                                  const std::set<std::string>& known) const {
  if (!node.isMap()) {
    fail(node, fmt::format("{} must be a map with {}", what, fmt::join(known, ", ")));
  }
  Fields found;
  for (const auto& entry : node.entries()) {
    const std::string key = entry.first.isScalar() ? entry.first.scalar() : "";
    if (known.count(key) == 0) {
      report(entry.first, fmt::format("unknown key '{}' in {}; known are {}", key, what,
                                      fmt::join(known, ", ")));
    } else if (!found.emplace(key, entry.second).second) {
      report(entry.first, fmt::format("duplicate key '{}'", key));
    }
  }
  return found;
}

const Node& Document::required(const Fields& fields, const Node& owner, const char* key) const {
  const auto found = fields.find(key);
  if (found == fields.end()) {
    if (owner.size() != fields.size()) {
      throw AlreadyReported();  // an unknown key may be this one, misspelt
    }
    fail(owner, fmt::format("the key '{}' is missing", key));
  }
  return found->second;
}

const std::vector<Node>& Document::entries(const Fields& fields, const char* key) const {
  const auto found = fields.find(key);
  if (found == fields.end()) {
    return Node().items();
  }
  if (!found->second.isList()) {
    fail(found->second, fmt::format("{} must be a list", key));
  }
  return found->second.items();
}

std::string Document::name(const Node& node, const char* what) const {
  std::string name = text(node, what);
  if (name.empty()) {
    fail(node, fmt::format("{} is empty", what));
  }
  return name;
}

/// Numbers and truths are no texts where texts have quotes.
bool Document::isText(const Node& node) const {
  return node.isScalar() && (format_ == Format::yaml || !node.isPlain());
}

std::string Document::text(const Node& node, const char* what) const {
  if (!isText(node)) {
    fail(node, fmt::format("{} must be text", what));
  }
  if (node.scalar().find('\0') != std::string::npos) {
    fail(node, fmt::format("{} holds a NUL character", what));
  }
  return node.scalar();
}

double Document::number(const Node& node, const char* what) const {
  if (!node.isScalar()) {
    fail(node, fmt::format("{} must be a number", what));
  }
  if (!node.isPlain()) {
    fail(node, fmt::format("{} is text in quotes or with a tag; write the plain number", what));
  }
  double value = 0.0;
  if (!parseNumber(node.scalar(), value)) {
    fail(node, fmt::format("{} is '{}'; a finite decimal number is needed", what,
                           node.scalar().substr(0, 40)));
  }
  return value;
}

float Document::singleNumber(const Node& node, const char* what) const {
  const auto value = static_cast<float>(number(node, what));
  if (!std::isfinite(value)) {
    fail(node, fmt::format("{} is beyond single precision", what));
  }
  return value;
}

bool Document::truth(const Node& node, const char* what) const {
  const std::string given = format_ == Format::yaml || node.isPlain() ? node.scalar() : "text";
  if (given != "true" && given != "false") {
    fail(node, fmt::format("{} is '{}'; use true or false", what, given.substr(0, 40)));
  }
  return given == "true";
}

double Document::wholeNumber(const Node& node, const char* what, double least, double most) const {
  const double value = number(node, what);
  if (value != std::floor(value) || value < least || value > most) {
    fail(node, fmt::format("{} must be a whole number from {} to {}", what, least, most));
  }
  return value;
}

double Document::seconds(const Node& node, const char* what) const {
  if (!node.isMap()) {
    return number(node, what);
  }
  const Fields parts = fields(node, "a time", {"sec", "nanosec", "secs", "nsecs"});
  const bool oldSpelling = parts.count("secs") != 0 || parts.count("nsecs") != 0;
  if (oldSpelling && (parts.count("sec") != 0 || parts.count("nanosec") != 0)) {
    fail(node, fmt::format("{} mixes two spellings; use sec and nanosec", what));
  }
  if (parts.empty()) {
    if (node.size() > 0) {
      throw AlreadyReported();
    }
    fail(node, fmt::format("{} is empty; give sec, nanosec or both", what));
  }
  const auto part = [&](const char* key, const char* name, double least, double most) {
    const auto found = parts.find(key);
    return found == parts.end() ? 0.0 : wholeNumber(found->second, name, least, most);
  };
  return part(oldSpelling ? "secs" : "sec", "seconds", -1e9, 1e9) +
         part(oldSpelling ? "nsecs" : "nanosec", "nanoseconds", 0, 999'999'999) / 1e9;
}

std::uint32_t Document::milliseconds(const Node& node, const char* what) const {
  const double time = seconds(node, what);
  if (time < 0) {
    fail(node, fmt::format("{} is negative", what));
  }
  if (time * 1000.0 > static_cast<double>(longestMs)) {
    fail(node, fmt::format("{} is more than {} seconds", what, longestMs / 1000));
  }
  return static_cast<std::uint32_t>(std::llround(time * 1000.0));
}

}  // namespace host
