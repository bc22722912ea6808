#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/base/attributekeys.h"
#include "host/base/values.h"
#include "simulation/observer.h"

namespace host {

/// Attributes of a running machine, by their keys, and what they hold now.
class LiveValues {
 public:
  /// Those that `AttributeKeys::find` finds, in its order. The observer must outlive the object.
  LiveValues(const simulation::Observer& observer, const AttributeKeys& known,
             const std::vector<std::string>& keys);

  [[nodiscard]] std::size_t size() const { return attributes_.size(); }
  [[nodiscard]] const std::string& key(std::size_t position) const {
    return attributes_[position].key;
  }
  /// Copies the values of the present cycle; the first ones are those at construction.
  void look() { cycle_ = observer_.copyCycle(); }
  /// When and by which cycle they were written.
  [[nodiscard]] const simulation::PoolCycle& cycle() const { return cycle_; }
  /// How long that is ago, in milliseconds; none when no cycle has written anything.
  [[nodiscard]] std::optional<std::int64_t> ageMs() const;
  /// A value as it was then; null when there is none.
  [[nodiscard]] Json value(std::size_t position) const;
  /// The same, for the eye.
  [[nodiscard]] std::string shownValue(std::size_t position) const;
  /// All values by their keys.
  [[nodiscard]] Json json() const;

 private:
  struct Attribute {
    int index;
    std::string key;
  };

  const simulation::Observer& observer_;
  std::vector<Attribute> attributes_;
  simulation::PoolCycle cycle_;
};

/// Says what the values are: the result is to be written out. The time is in
/// milliseconds since watching began.
class ValueLines {
 public:
  explicit ValueLines(const LiveValues& values);

  /// "SECONDS KEY VALUE" for each value that is not as it was at the last call.
  std::string changed(std::int64_t timeMs);

 private:
  const LiveValues& values_;
  /// Of each value, as shown at the last call.
  std::vector<std::string> last_;
};

/// One line of JSON that holds all values.
std::string jsonLine(const LiveValues& values, std::int64_t timeMs);

}  // namespace host
