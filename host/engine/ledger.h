#pragma once

#include <cstdint>
#include <map>
#include <unordered_map>

#include "host/engine/request.h"

namespace host {

/// Keeps account of the points of requests: whose they are, and what became of them. Of the
/// thread that tells.
class Ledger : public Listener {
 public:
  /// A batch of this number is to be taken. It has so many points in all rounds, and so many
  /// rows of values.
  void expect(std::uint32_t batch, CommanderId commander, std::uint64_t points,
              std::uint64_t stored);
  void tell(const Event& event, const Point* points) override;
  /// A commander ends; its points may still run out.
  void forget(CommanderId commander);

  /// How many points wait: of all requests, of those of one commander.
  [[nodiscard]] std::uint64_t waiting() const { return waiting_; }
  [[nodiscard]] std::uint64_t waitingOf(CommanderId commander) const;
  [[nodiscard]] PointCounts countsOf(CommanderId commander) const;

 private:
  struct Batch {
    CommanderId commander = nobody;
    std::uint64_t left = 0;
    std::uint64_t stored = 0;
  };
  struct Account {
    PointCounts counts;
    std::uint64_t waiting = 0;
    bool isGone = false;
  };

  void settle(std::uint32_t number, Batch& batch, Account& account, std::uint64_t points);

  std::unordered_map<std::uint32_t, Batch> batches_;
  std::map<CommanderId, Account> accounts_;
  std::uint64_t waiting_ = 0;
};

}  // namespace host
