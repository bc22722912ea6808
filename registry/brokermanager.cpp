#include "registry/brokermanager.h"

namespace {
boost::shared_ptr<ZR::ZRBroker> gBroker;
}  // namespace

boost::shared_ptr<ZR::ZRBroker> getBrokerManager() {
  return gBroker;
}

// A copy, not a move: the argument holds its reference until the call returns.
void setBrokerManager(boost::shared_ptr<ZR::ZRBroker> broker) {
  gBroker = broker;  // NOLINT(performance-unnecessary-value-param)
}
