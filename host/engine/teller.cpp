#include "host/engine/teller.h"

namespace host {

void Teller::tell(const Event& event, const Point* points) {
  Told& told = told_.emplace_back(Told{event, {}});
  if (points != nullptr) {
    told.points.assign(points, points + event.count);
  }
}

void Teller::passOn() {
  for (const Told& told : told_) {
    const Point* const points = told.points.empty() ? nullptr : told.points.data();
    ring_.tell(told.event, points);
    for (Listener* const listener : listeners_) {
      listener->tell(told.event, points);
    }
  }
  told_.clear();
  ring_.publish();
}

}  // namespace host
