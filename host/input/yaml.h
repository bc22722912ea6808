#pragma once

#include <yaml-cpp/yaml.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "host/base/usererror.h"

namespace host {

/// A YAML file of one document. What is wrong with a node is thrown as an
/// `UserError` with the node's source location.
class YamlFile {
 public:
  using Fields = std::map<std::string, YAML::Node>;

  /// The parser takes some fifty times as much memory.
  static constexpr std::size_t maxBytes = std::size_t{32} << 20;

  /// Stamps further apart do not compare; leaves room for the approach.
  static constexpr std::int64_t longestMs = 1'000'000'000;

  /// `text` is the content of the file at `path`. Throws `UserError` when it
  /// is longer than `maxBytes` or not readable.
  YamlFile(const std::string& path, const std::string& text);

  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] const YAML::Node& root() const { return root_; }

  [[nodiscard]] static SourceLocation locationOf(const YAML::Node& node);
  [[noreturn]] void fail(const YAML::Node& node, const std::string& what) const;

  /// The fields of a map: each key known and named once.
  [[nodiscard]] Fields fields(const YAML::Node& node, const std::string& what,
                              const std::set<std::string>& known) const;
  [[nodiscard]] const YAML::Node& required(const Fields& fields, const YAML::Node& owner,
                                           const char* key) const;
  /// The entries of a field that holds a list; none when it is absent.
  [[nodiscard]] YAML::Node entries(const Fields& fields, const char* key) const;

  /// A name: text that is not empty and holds no NUL.
  [[nodiscard]] std::string name(const YAML::Node& node, const char* what) const;
  /// Text without NUL.
  [[nodiscard]] std::string text(const YAML::Node& node, const char* what) const;
  /// A plain finite decimal number.
  [[nodiscard]] double number(const YAML::Node& node, const char* what) const;
  /// The same, within single precision.
  [[nodiscard]] float singleNumber(const YAML::Node& node, const char* what) const;
  /// true or false.
  [[nodiscard]] bool truth(const YAML::Node& node, const char* what) const;
  [[nodiscard]] double wholeNumber(const YAML::Node& node, const char* what, double least,
                                   double most) const;
  /// {sec, nanosec}, {secs, nsecs} or a number of seconds.
  [[nodiscard]] double seconds(const YAML::Node& node, const char* what) const;
  /// The same, from 0 to the longest motion, to the nearest millisecond.
  [[nodiscard]] std::uint32_t milliseconds(const YAML::Node& node, const char* what) const;

 private:
  const std::string path_;
  YAML::Node root_;
};

}  // namespace host
