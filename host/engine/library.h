#pragma once

#include "attrfullname/attrfullname.h"
#include "registry/attrfullnamemanager.h"
#include "registry/brokermanager.h"
#include "registry/torvexmanager.h"
#include "timedcommandmanager/timedcommandmanager.h"

namespace host {

/// The library, started on the device pool of this process: its slots are filled as long as
/// the object lives, and empty again afterwards, whatever went wrong in between.
class Library {
 public:
  /// The start-up sequence. The platform must be there, and outlive the object. `broker` and
  /// `host` may be empty. Throws what the tables and the platform throw; then the slots are
  /// empty.
  explicit Library(const boost::shared_ptr<ZR::ZRBroker>& broker = {}, Torvex* host = nullptr)
      : slots_(broker, host, names, commands) {
    names.initNameList(0);
    commands.initTimedCommand(0);
  }

  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  AttrFullName names;
  TimedCommandManager commands;

 private:
  struct Slots {
    Slots(const boost::shared_ptr<ZR::ZRBroker>& broker, Torvex* host, AttrFullName& names,
          TimedCommandManager& commands) {
      setBrokerManager(broker);
      setTorvexManager(host);
      setAttrFullNameManager(&names);
      setTimedCommandManager(&commands);
    }
    ~Slots() {
      setTimedCommandManager(nullptr);
      setAttrFullNameManager(nullptr);
      setTorvexManager(nullptr);
      setBrokerManager(nullptr);
    }
    Slots(const Slots&) = delete;
    Slots& operator=(const Slots&) = delete;
  };

  const Slots slots_;
};

}  // namespace host
