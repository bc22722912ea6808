#include "timedcommandmanager/timedcommandmanager.h"

#include <cstddef>
#include <cstring>
#include <list>
#include <new>

#include "attrfullname/attrfullname.h"
#include "platform/hal/devicemanager.h"
#include "platform/hal/devicepool.h"
#include "platform/hal/subdevicelist.h"
#include "registry/attrfullnamemanager.h"

#if defined(__GLIBCXX__) && !defined(_GLIBCXX_DEBUG)
static_assert(sizeof(boost::CommandNodeLayout) ==
              sizeof(std::_List_node<TimedCommand::commandItem>));
#endif

// Using `create_object` makes loading the library create the pool, before the
// first timeline.
namespace boost {

template <>
CommandNodePool::pool_type& CommandNodePool::get_pool() {
  static auto* const pool = new (&storage) pool_type;
  create_object.do_nothing();
  return *pool;
}

template <>
CommandItemPool::pool_type& CommandItemPool::get_pool() {
  static auto* const pool = new (&storage) pool_type;
  create_object.do_nothing();
  return *pool;
}

}  // namespace boost

namespace {

constexpr unsigned char allSubDevices = 1;

TimedCommandManager* gTimedCommandManager = nullptr;

bool isAtEnd(hal::SubDeviceIterator& subDevice, hal::SubDeviceList& subDevices) {
  hal::SubDeviceIterator end = subDevices.end();
  return subDevice == end;
}

}  // namespace

TimedCommandManager* getTimedCommandManager() {
  return gTimedCommandManager;
}

void setTimedCommandManager(TimedCommandManager* manager) {
  gTimedCommandManager = manager;
}

void TimedCommandManager::initTimedCommand(int startIndex) {
  hal::SubDeviceIterator subDevice(allSubDevices);
  hal::SubDeviceList subDevices;
  const int count = hal::getDevicePool()->attributeCount;
  sizeTable(startIndex, count);
  for (int index = startIndex; index < count; ++index) {
    commandTable[static_cast<std::size_t>(index)].deviceAttr =
        hal::getDeviceManager()->getAttrWithIndex(index);
  }
  actuatorCommands.clear();
  for (subDevice = subDevices.find(); !isAtEnd(subDevice, subDevices); subDevice++) {
    if (subDevice->isActuator()) {
      listValueTimelines(subDevice);
    }
  }
}

// Timelines are copied from one prototype, so that a build has one lock.
void TimedCommandManager::sizeTable(int startIndex, int count) {
  const TimedCommand prototype;
  const auto size = static_cast<std::size_t>(count);
  if (startIndex == 0) {
    commandTable = std::vector<TimedCommand>(size, prototype);
  } else {
    commandTable.resize(size, prototype);
  }
}

void TimedCommandManager::listValueTimelines(hal::SubDeviceIterator& actuator) {
  for (int index = actuator->getFirstAttrIndex(); index <= actuator->getLastAttrIndex(); ++index) {
    TimedCommand& timeline = commandTable[static_cast<std::size_t>(index)];
    const char* name = hal::getDeviceManager()->getNameByAttribute(timeline.deviceAttr);
    if (name == nullptr || std::strcmp(name, "Value") != 0) {
      continue;
    }
    timeline.isSubDevice = 1;
    timeline.subDeviceAccessor = *actuator;
    timeline.preAllocate();
    timeline.testIfInterpolationPossible();
    actuatorCommands.push_back(&timeline);
  }
}

bool TimedCommandManager::AddTimedCommandWithIndex(int index, CommandList& commands,
                                                   TimedCommand::commandType type) {
  // Neither the index nor the outcome is looked at: the caller is trusted, and
  // sees by its list whether it was taken.
  commandTable[static_cast<std::size_t>(index)].pushTimedCommand(commands, type);
  return true;
}

bool TimedCommandManager::AddTimedCommand(const std::string& name, CommandList& commands,
                                          TimedCommand::commandType type) {
  const int index = getAttrFullNameManager()->getAttributeIndexWithName(name);
  if (index < 0) {
    return false;
  }
  return AddTimedCommandWithIndex(index, commands, type);
}

int TimedCommandManager::testActuatorName(const std::string& name) {
  return getAttrFullNameManager()->getAttributeIndexWithName(name);
}

void TimedCommandManager::run(unsigned int time, unsigned int previousTime) {
  for (int i = 0; i < static_cast<int>(actuatorCommands.size()); ++i) {
    actuatorCommands[static_cast<std::size_t>(i)]->run(time, previousTime);
  }
}
