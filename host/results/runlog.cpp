#include "host/results/runlog.h"

namespace host {
namespace {

void addDots(std::vector<RunLog::Dot>& dots, const Event& event, const Point* points) {
  for (std::uint64_t i = 0; points != nullptr && i < event.count && dots.size() <= RunLog::mostDots;
       ++i) {
    dots.push_back({points[i].timeMs, points[i].value});
  }
}

}  // namespace

void RunLog::tell(const Event& event, const Point* points) {
  if (event.actuator < 0 || (event.kind == EventKind::cleared && event.byBatch == Event::byHost)) {
    return;
  }
  AxisLog& axis = axes_[event.actuator];
  if (event.kind == EventKind::reached || event.kind == EventKind::cleared) {
    addDots(event.kind == EventKind::reached ? axis.reached : axis.cleared, event, points);
    axis.dots += event.count;
  } else if (event.kind == EventKind::limited) {
    addDots(axis.limited, event, points);
  } else if (event.kind == EventKind::taken && axis.batches.size() < mostBatches) {
    axis.batches.push_back(event.batch);
  }
}

const RunLog::AxisLog& RunLog::of(int actuator) const {
  static const AxisLog nothing;
  const auto found = axes_.find(actuator);
  return found == axes_.end() ? nothing : found->second;
}

}  // namespace host
