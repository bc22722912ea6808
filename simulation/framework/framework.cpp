#include "simulation/framework.h"

#include <atomic>
#include <boost/enable_shared_from_this.hpp>
#include <boost/make_shared.hpp>
#include <utility>

#include "platform/zr/zrexception.h"
#include "platform/zr/zrpreferencesproxy.h"
#include "simulation/framework/preferencefile.h"

namespace simulation {
namespace {

constexpr char preferencesModule[] = "ZRPreferences";

class PreferencesService : public ZR::ZRProxy {
 public:
  explicit PreferencesService(std::string directory) : directory_(std::move(directory)) {}

  void write(const std::string& fileName, const ZR::ZRValue& tree) const {
    writePreferenceFile(directory_, fileName, tree);
  }

 private:
  const std::string directory_;
};

class Broker : public ZR::ZRBroker, public boost::enable_shared_from_this<Broker> {
 public:
  explicit Broker(const std::string& preferenceDirectory)
      : preferences_(boost::make_shared<PreferencesService>(preferenceDirectory)) {}

  boost::shared_ptr<ZR::ZRProxy> getProxy(const std::string& moduleName, int /*option*/) override {
    if (!reachable_) {
      throw ZR::ZRException("the broker cannot be reached");
    }
    if (moduleName != preferencesModule) {
      throw ZR::ZRException("the broker has no module '" + moduleName + "', only " +
                            preferencesModule);
    }
    return preferences_;
  }

  boost::shared_ptr<ZR::ZRBroker> getThis() override { return shared_from_this(); }

  void setReachable(bool reachable) { reachable_ = reachable; }

 private:
  const boost::shared_ptr<PreferencesService> preferences_;
  std::atomic<bool> reachable_{true};
};

}  // namespace

Framework::Framework(const std::string& preferenceDirectory)
    : broker_(boost::make_shared<Broker>(preferenceDirectory)) {}

void Framework::setReachable(bool reachable) {
  static_cast<Broker&>(*broker_).setReachable(reachable);
}

}  // namespace simulation

namespace ZR {

ZRPreferencesProxy::ZRPreferencesProxy(boost::shared_ptr<ZRProxy> service)
    : service_(std::move(service)) {
  if (dynamic_cast<simulation::PreferencesService*>(service_.get()) == nullptr) {
    throw ZRException("this is no proxy of the preferences service");
  }
}

ZRPreferencesProxy::ZRPreferencesProxy(const boost::shared_ptr<ZRBroker>& broker)
    : ZRPreferencesProxy(broker == nullptr ? nullptr
                                           : broker->getProxy(simulation::preferencesModule, 0)) {}

void ZRPreferencesProxy::writePrefFile(const std::string& fileName, const ZRValue& tree,
                                       const bool& /*flag*/) {
  static_cast<simulation::PreferencesService&>(*service_).write(fileName, tree);
}

}  // namespace ZR
