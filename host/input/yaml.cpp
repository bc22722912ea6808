#include "host/input/yaml.h"

#include <fmt/format.h>
#include <yaml-cpp/depthguard.h>

#include <cmath>

#include "host/base/textfile.h"
#include "host/input/yamlsurvey.h"

namespace host {
namespace {

YAML::Node load(const std::string& path, const std::string& text) {
  if (text.size() > YamlFile::maxBytes) {
    throw UserError(path, {}, fmt::format("is longer than {} bytes", YamlFile::maxBytes));
  }
  try {
    surveyYaml(path, text);
    return YAML::Load(text);
  } catch (const YAML::DeepRecursion& error) {
    throw UserError(path, positionOf(error.mark), "not readable as YAML: nested too deeply");
  } catch (const YAML::Exception& error) {
    throw UserError(path, positionOf(error.mark),
                    fmt::format("not readable as YAML: {}", error.msg));
  }
}

}  // namespace

YamlFile::YamlFile(const std::string& path, const std::string& text, ErrorCollector& errors)
    : path_(path), errors_(errors), root_(load(path, text)) {}

SourceLocation YamlFile::locationOf(const YAML::Node& node) {
  return positionOf(node.Mark());
}

UserError YamlFile::error(const YAML::Node& node, const std::string& what) const {
  return {at(node), what};
}

void YamlFile::fail(const YAML::Node& node, const std::string& what) const {
  throw error(node, what);
}

void YamlFile::report(const YAML::Node& node, const std::string& what) const {
  errors_.add(error(node, what));
}

void YamlFile::stop(const YAML::Node& node, const std::string& what) const {
  errors_.stop(error(node, what));
}

YamlFile::Fields YamlFile::fields(const YAML::Node& node, const std::string& what,
                                  const std::set<std::string>& known) const {
  if (!node.IsMap()) {
    fail(node, fmt::format("{} must be a map with {}", what, fmt::join(known, ", ")));
  }
  Fields found;
  for (const auto& entry : node) {
    const std::string key = entry.first.IsScalar() ? entry.first.Scalar() : "";
    if (known.count(key) == 0) {
      report(entry.first, fmt::format("unknown key '{}' in {}; known are {}", key, what,
                                      fmt::join(known, ", ")));
    } else if (!found.emplace(key, entry.second).second) {
      report(entry.first, fmt::format("duplicate key '{}'", key));
    }
  }
  return found;
}

const YAML::Node& YamlFile::required(const Fields& fields, const YAML::Node& owner,
                                     const char* key) const {
  const auto found = fields.find(key);
  if (found == fields.end()) {
    if (owner.size() != fields.size()) {
      throw AlreadyReported();  // an unknown key may be this one, misspelt
    }
    fail(owner, fmt::format("the key '{}' is missing", key));
  }
  return found->second;
}

YAML::Node YamlFile::entries(const Fields& fields, const char* key) const {
  const auto found = fields.find(key);
  if (found == fields.end()) {
    return YAML::Node(YAML::NodeType::Sequence);
  }
  if (!found->second.IsSequence()) {
    fail(found->second, fmt::format("{} must be a list", key));
  }
  return found->second;
}

std::string YamlFile::name(const YAML::Node& node, const char* what) const {
  std::string name = text(node, what);
  if (name.empty()) {
    fail(node, fmt::format("{} is empty", what));
  }
  return name;
}

std::string YamlFile::text(const YAML::Node& node, const char* what) const {
  if (!node.IsScalar()) {
    fail(node, fmt::format("{} must be text", what));
  }
  if (node.Scalar().find('\0') != std::string::npos) {
    fail(node, fmt::format("{} holds a NUL character", what));
  }
  return node.Scalar();
}

double YamlFile::number(const YAML::Node& node, const char* what) const {
  if (!node.IsScalar()) {
    fail(node, fmt::format("{} must be a number", what));
  }
  if (node.Tag() != "?") {
    fail(node, fmt::format("{} is text in quotes or behind a tag; write the plain number", what));
  }
  double value = 0.0;
  if (!parseNumber(node.Scalar(), value)) {
    fail(node, fmt::format("{} is '{}'; a finite decimal number is needed", what,
                           node.Scalar().substr(0, 40)));
  }
  return value;
}

float YamlFile::singleNumber(const YAML::Node& node, const char* what) const {
  const auto value = static_cast<float>(number(node, what));
  if (!std::isfinite(value)) {
    fail(node, fmt::format("{} lies beyond single precision", what));
  }
  return value;
}

bool YamlFile::truth(const YAML::Node& node, const char* what) const {
  const std::string given = text(node, what);
  if (given != "true" && given != "false") {
    fail(node, fmt::format("{} is '{}'; use true or false", what, given.substr(0, 40)));
  }
  return given == "true";
}

double YamlFile::wholeNumber(const YAML::Node& node, const char* what, double least,
                             double most) const {
  const double value = number(node, what);
  if (value != std::floor(value) || value < least || value > most) {
    fail(node, fmt::format("{} must be a whole number from {} to {}", what, least, most));
  }
  return value;
}

double YamlFile::seconds(const YAML::Node& node, const char* what) const {
  if (!node.IsMap()) {
    return number(node, what);
  }
  const Fields parts = fields(node, what, {"sec", "nanosec", "secs", "nsecs"});
  const bool oldSpelling = parts.count("secs") != 0 || parts.count("nsecs") != 0;
  if (oldSpelling && (parts.count("sec") != 0 || parts.count("nanosec") != 0)) {
    fail(node, fmt::format("{} mixes two spellings; use sec and nanosec", what));
  }
  if (parts.empty()) {
    if (node.size() > 0) {
      throw AlreadyReported();
    }
    fail(node, fmt::format("{} holds nothing; give sec, nanosec or both", what));
  }
  const auto part = [&](const char* key, const char* name, double least, double most) {
    const auto found = parts.find(key);
    return found == parts.end() ? 0.0 : wholeNumber(found->second, name, least, most);
  };
  return part(oldSpelling ? "secs" : "sec", "seconds", -1e9, 1e9) +
         part(oldSpelling ? "nsecs" : "nanosec", "nanoseconds", 0, 999'999'999) / 1e9;
}

std::uint32_t YamlFile::milliseconds(const YAML::Node& node, const char* what) const {
  const double time = seconds(node, what);
  if (time < 0) {
    fail(node, fmt::format("{} is negative", what));
  }
  if (time * 1000.0 > static_cast<double>(longestMs)) {
    fail(node, fmt::format("{} lies beyond {} seconds", what, longestMs / 1000));
  }
  return static_cast<std::uint32_t>(std::llround(time * 1000.0));
}

}  // namespace host
