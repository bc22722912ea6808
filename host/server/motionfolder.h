#pragma once

#include <memory>
#include <string>

#include "host/base/heldfolder.h"
#include "host/base/values.h"
#include "host/input/motiontexts.h"

namespace host {

/// Whether it ends as the names of YAML and JSON files do.
bool isMotionName(const std::string& name);

/// The motion files of a folder, which clients may play by their names. Any thread.
class MotionFolder : public MotionTexts {
 public:
  /// Throws `UserError` when it is no folder.
  explicit MotionFolder(const std::string& path) : folder_(path) {}

  /// Name and size of each YAML and JSON file in it.
  [[nodiscard]] Json list() const;

  [[nodiscard]] bool has(const std::string& path) const override;
  [[nodiscard]] std::string read(const std::string& path) const override;

 private:
  const HeldFolder folder_;
};

}  // namespace host
