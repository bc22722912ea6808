#pragma once

#include <vector>

#include "host/engine/eventring.h"
#include "host/motion/event.h"

namespace host {

/// Collects events, also under the gate, and delivers them outside of it, to the ring and to
/// listeners of this process. Used by the command thread alone.
class Teller : public Listener {
 public:
  /// Before anything is told.
  void addListener(Listener& listener) { listeners_.push_back(&listener); }

  void tell(const Event& event, const Point* points) override;

  /// Delivers what was collected.
  void passOn();

  [[nodiscard]] const EventRing& ring() const { return ring_; }

 private:
  struct Told {
    Event event;
    std::vector<Point> points;
  };

  EventRing ring_;
  std::vector<Listener*> listeners_;
  std::vector<Told> told_;
};

}  // namespace host
