#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "host/base/errorcollector.h"
#include "host/input/node.h"

namespace host {

/// A document to be read: a YAML file, or the JSON of a request. What is wrong with a node is
/// reported, or thrown, as a `UserError`: in a file with the node's source location, in a request
/// with its JSON pointer in place of the path.
class Document {
 public:
  enum class Format { yaml, json };
  using Fields = std::map<std::string, Node>;

  /// What is read takes some fifty times as much memory.
  static constexpr std::size_t maxBytes = std::size_t{32} << 20;

  /// Stamps further apart do not compare; leaves room for the approach.
  static constexpr std::int64_t longestMs = 1'000'000'000;

  /// `text` is the content of the file at `path`, or of a request of this name. Throws
  /// `UserError` when it is longer than `maxBytes` or not readable. What is reported goes to
  /// `errors`, which must outlive the object.
  Document(const std::string& path, const std::string& text, ErrorCollector& errors,
           Format format = Format::yaml);

  [[nodiscard]] const std::string& path() const { return path_; }
  /// The file's path; in a request, the JSON pointer of the node.
  [[nodiscard]] std::string pathOf(const Node& node) const {
    return format_ == Format::yaml ? path_ : node.pointer();
  }
  [[nodiscard]] Node root() const { return tree_.root(); }

  [[nodiscard]] FileLocation at(const Node& node) const;
  [[nodiscard]] UserError error(const Node& node, const std::string& what) const;
  /// Throws: what is being attempted cannot be read.
  [[noreturn]] void fail(const Node& node, const std::string& what) const;
  /// Reports an error behind which reading goes on.
  void report(const Node& node, const std::string& what) const;
  /// Reports an error behind which nothing more is read, since it asks for too much.
  [[noreturn]] void stop(const Node& node, const std::string& what) const;
  /// As `ErrorCollector::attempt`.
  template <typename Read>
  // NOLINTNEXTLINE(modernize-use-nodiscard): most callers go on either way
  bool attempt(const Read& read) const {
    return errors_.attempt(read);
  }

  /// The fields of a map; unknown and duplicate keys are reported and left out.
  [[nodiscard]] Fields fields(const Node& node, const std::string& what,
                              const std::set<std::string>& known) const;
  [[nodiscard]] const Node& required(const Fields& fields, const Node& owner,
                                     const char* key) const;
  /// Attempts `read` with the node of this field, if there is one. True when no error came up.
  template <typename Read>
  bool field(const Fields& fields, const char* key, const Read& read) const {
    const auto found = fields.find(key);
    return found == fields.end() || attempt([&] { read(found->second); });
  }
  /// The same for a field that must be there.
  template <typename Read>
  bool requiredField(const Fields& fields, const Node& owner, const char* key,
                     const Read& read) const {
    return attempt([&] { read(required(fields, owner, key)); });
  }
  /// The entries of a field that holds a list; none when it is absent.
  [[nodiscard]] const std::vector<Node>& entries(const Fields& fields, const char* key) const;

  /// A name: text that is not empty and holds no NUL.
  [[nodiscard]] std::string name(const Node& node, const char* what) const;
  /// Text without NUL.
  [[nodiscard]] std::string text(const Node& node, const char* what) const;
  /// A plain finite decimal number.
  [[nodiscard]] double number(const Node& node, const char* what) const;
  /// The same, within single precision.
  [[nodiscard]] float singleNumber(const Node& node, const char* what) const;
  /// true or false.
  [[nodiscard]] bool truth(const Node& node, const char* what) const;
  [[nodiscard]] double wholeNumber(const Node& node, const char* what, double least,
                                   double most) const;
  /// {sec, nanosec}, {secs, nsecs} or a number of seconds; of the two one may be absent, and
  /// is 0.
  [[nodiscard]] double seconds(const Node& node, const char* what) const;
  /// The same, from 0 to the longest motion, to the nearest millisecond.
  [[nodiscard]] std::uint32_t milliseconds(const Node& node, const char* what) const;

 private:
  [[nodiscard]] bool isText(const Node& node) const;

  const std::string path_;
  const Format format_;
  ErrorCollector& errors_;
  NodeTree tree_;
};

}  // namespace host
