#pragma once

#include <map>
#include <string>
#include <vector>

#include "simulation/observer.h"

namespace host {

/// The attributes of a running machine by their full keys.
class AttributeKeys {
 public:
  explicit AttributeKeys(const simulation::Observer& observer);

  /// In the order of the machine.
  [[nodiscard]] const std::vector<std::string>& all() const { return keys_; }
  /// The indexes of what is wanted, none twice. A bare key means a sub-device's; one with *, ?
  /// or [ is a pattern as in the shell, held against bare and full keys, and is in the order of
  /// the machine. Nothing wanted means all. Throws `simulation::Error` for what is not there.
  [[nodiscard]] std::vector<int> find(const std::vector<std::string>& wanted) const;
  /// Of one attribute.
  [[nodiscard]] const std::string& key(int index) const { return byIndex_.at(index); }

 private:
  [[nodiscard]] std::vector<int> matching(const std::string& pattern) const;
  [[noreturn]] void refuse(const std::string& key) const;

  std::vector<std::string> keys_;
  std::map<std::string, int> indexes_;
  std::map<int, std::string> byIndex_;
};

}  // namespace host
