#pragma once

#include "registry/attrfullnamemanager.h"
#include "registry/brokermanager.h"
#include "registry/torvexmanager.h"
#include "timedcommandmanager/timedcommandmanager.h"

namespace host {

/// The slots of the registry, filled as long as it lives; empty again afterwards, whatever
/// went wrong in between.
class Registration {
 public:
  Registration(const boost::shared_ptr<ZR::ZRBroker>& broker, Torvex* host, AttrFullName& names,
               TimedCommandManager& commands) {
    setBrokerManager(broker);
    setTorvexManager(host);
    setAttrFullNameManager(&names);
    setTimedCommandManager(&commands);
  }
  ~Registration() {
    setTimedCommandManager(nullptr);
    setAttrFullNameManager(nullptr);
    setTorvexManager(nullptr);
    setBrokerManager(nullptr);
  }

  Registration(const Registration&) = delete;
  Registration& operator=(const Registration&) = delete;
};

}  // namespace host
