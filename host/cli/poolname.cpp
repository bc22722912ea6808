#include "host/cli/poolname.h"

#include <algorithm>
#include <filesystem>
#include <vector>

#include "host/base/plainname.h"
#include "simulation/machine.h"
#include "simulation/observer.h"

namespace host {
namespace {

bool isOwned(const std::string& poolName) {
  try {
    return simulation::Observer(poolName).isOwned();
  } catch (const simulation::Error&) {
    return false;  // no pool, or one that has just ended
  }
}

/// In the order of their names.
std::vector<std::string> ownedPools() {
  const std::filesystem::path any = simulation::poolPath("x");
  const std::string file = any.filename();
  const std::string prefix = file.substr(0, file.size() - 1);
  std::vector<std::string> names;
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(any.parent_path(), ignored)) {
    const std::string found = entry.path().filename();
    if (found.rfind(prefix, 0) == 0 && isOwned(found.substr(prefix.size()))) {
      names.push_back(found.substr(prefix.size()));
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace

std::string poolNameFor(const std::string& machineName) {
  constexpr std::size_t longest = 200;
  return plainName(machineName, longest);
}

void choosePool(SessionOptions& session, const std::string& machineName) {
  if (session.poolName.empty() && session.clock == Clock::realtime) {
    session.poolName = poolNameFor(machineName);
  }
}

std::string onlyPool() {
  const std::vector<std::string> names = ownedPools();
  if (names.empty()) {
    throw simulation::Error("no machine runs; start one with 'torvex serve MACHINE'");
  }
  if (names.size() > 1) {
    std::string all;
    for (const std::string& name : names) {
      all += (all.empty() ? "" : ", ") + name;
    }
    throw simulation::Error("several machines run; pick one by --pool: " + all);
  }
  return names.front();
}

}  // namespace host
