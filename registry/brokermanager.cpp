#include "registry/brokermanager.h"

#include <utility>

namespace {
boost::shared_ptr<ZR::ZRBroker> gBroker;
}  // namespace

boost::shared_ptr<ZR::ZRBroker> getBrokerManager() {
  return gBroker;
}

void setBrokerManager(boost::shared_ptr<ZR::ZRBroker> broker) {
  gBroker = std::move(broker);
}
