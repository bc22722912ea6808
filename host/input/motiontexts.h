#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>

namespace host {

/// Where the texts of motion files come from.
class MotionTexts {
 public:
  MotionTexts() = default;
  MotionTexts(const MotionTexts&) = delete;
  MotionTexts& operator=(const MotionTexts&) = delete;
  virtual ~MotionTexts() = default;

  [[nodiscard]] virtual bool has(const std::string& path) const = 0;
  /// Throws `UserError`.
  [[nodiscard]] virtual std::string read(const std::string& path) const = 0;
};

class MotionsOnDisk : public MotionTexts {
 public:
  [[nodiscard]] bool has(const std::string& path) const override;
  [[nodiscard]] std::string read(const std::string& path) const override;
};

/// Files that came with a request, by the names that the client has for them.
class MotionsOfClient : public MotionTexts {
 public:
  explicit MotionsOfClient(std::map<std::string, std::string> texts) : texts_(std::move(texts)) {}

  [[nodiscard]] bool has(const std::string& path) const override;
  [[nodiscard]] std::string read(const std::string& path) const override;
  /// The first file that was wanted and did not come; empty when all did.
  [[nodiscard]] const std::string& missing() const { return missing_; }

 private:
  const std::map<std::string, std::string> texts_;
  mutable std::string missing_;
};

/// What a user calls a motion.
struct MotionName {
  std::string path;
  /// One of the named motions in it.
  std::optional<std::string> motion;
};

/// "FILE:NAME" where there is such a file, and no file of the whole name.
MotionName splitMotionName(const std::string& given, const MotionTexts& texts);

}  // namespace host
