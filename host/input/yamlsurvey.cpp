#include "host/input/yamlsurvey.h"

#include <fmt/format.h>
#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/yaml.h>

#include <cstddef>
#include <sstream>

namespace host {
namespace {

/// A node takes some 450 bytes.
constexpr std::size_t mostNodes = 4'000'000;

class Survey : public YAML::EventHandler {
 public:
  explicit Survey(const std::string& path) : path_(path) {}

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
  void OnNull(const YAML::Mark& mark, YAML::anchor_t /*anchor*/) override { countNode(mark); }
  void OnAlias(const YAML::Mark& mark, YAML::anchor_t /*anchor*/) override { takeContent(mark); }
  void OnScalar(const YAML::Mark& mark, const std::string& /*tag*/, YAML::anchor_t /*anchor*/,
                const std::string& /*value*/) override {
    takeContent(mark);
  }
  void OnSequenceStart(const YAML::Mark& mark, const std::string& /*tag*/,
                       YAML::anchor_t /*anchor*/, YAML::EmitterStyle::value /*style*/) override {
    takeContent(mark);
  }
  void OnSequenceEnd() override {}
  void OnMapStart(const YAML::Mark& mark, const std::string& /*tag*/, YAML::anchor_t /*anchor*/,
                  YAML::EmitterStyle::value /*style*/) override {
    takeContent(mark);
  }
  void OnMapEnd() override {}

 private:
  [[noreturn]] void fail(const YAML::Mark& mark, const std::string& what) const {
    throw UserError(path_, positionOf(mark), what);
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

  void countNode(const YAML::Mark& mark) {
    if (++nodes_ > mostNodes) {
      fail(mark, fmt::format("the file up to here holds more than {} values", mostNodes));
    }
  }

  const std::string& path_;
  int documents_ = 0;
  int begin_ = 0;
  std::size_t nodes_ = 0;
};

}  // namespace

SourceLocation positionOf(const YAML::Mark& mark) {
  return mark.is_null() ? SourceLocation{1, 1}
                        : SourceLocation{static_cast<std::size_t>(mark.line) + 1,
                                         static_cast<std::size_t>(mark.column) + 1};
}

void surveyYaml(const std::string& path, const std::string& text) {
  std::istringstream stream(text);
  YAML::Parser parser(stream);
  Survey survey(path);
  while (parser.HandleNextDocument(survey)) {
  }
  if (!survey.foundDocument()) {
    throw UserError(path, {1, 1}, "the file is empty");
  }
}

}  // namespace host
