#include "timedcommandmanager/timedcommandmanager.h"

#include <cstddef>
#include <cstring>

#include "attrfullname/attrfullname.h"
#include "platform/hal/devicemanager.h"
#include "platform/hal/devicepool.h"
#include "platform/hal/subdevicelist.h"
#include "registry/attrfullnamemanager.h"

// Loading the library creates both node pools, before the first timeline.
namespace boost {
template class singleton_pool<pool_allocator_tag, sizeof(CommandNodeLayout),
                              default_user_allocator_new_delete, mutex, 32, 0>;
template class singleton_pool<pool_allocator_tag, sizeof(TimedCommand::commandItem),
                              default_user_allocator_new_delete, mutex, 32, 0>;
}  // namespace boost

namespace {

constexpr unsigned char allSubDevices = 1;

TimedCommandManager* gTimedCommandManager = nullptr;

}  // namespace

TimedCommandManager* getTimedCommandManager() {
  return gTimedCommandManager;
}

void setTimedCommandManager(TimedCommandManager* manager) {
  gTimedCommandManager = manager;
}

void TimedCommandManager::initTimedCommand(int startIndex) {
  const int count = hal::getDevicePool()->attributeCount;
  sizeTable(startIndex, count);
  for (int index = startIndex; index < count; ++index) {
    commandTable[static_cast<std::size_t>(index)].deviceAttr =
        hal::getDeviceManager()->getAttrWithIndex(index);
  }
  listActuators();
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

void TimedCommandManager::listActuators() {
  actuatorCommands.clear();
  hal::SubDeviceList subDevices;
  hal::SubDeviceIterator subDevice(allSubDevices);
  hal::SubDeviceIterator end(allSubDevices);
  for (subDevice = subDevices.find();; subDevice++) {
    end = subDevices.end();
    if (subDevice == end) {
      return;
    }
    if (subDevice->isActuator()) {
      listValueTimelines(*subDevice);
    }
  }
}

void TimedCommandManager::listValueTimelines(hal::SubDeviceAccessor& actuator) {
  for (int index = actuator.getFirstAttrIndex(); index <= actuator.getLastAttrIndex(); ++index) {
    TimedCommand& timeline = commandTable[static_cast<std::size_t>(index)];
    const char* name = hal::getDeviceManager()->getNameByAttribute(timeline.deviceAttr);
    if (name == nullptr || std::strcmp(name, "Value") != 0) {
      continue;
    }
    timeline.isSubDevice = 1;
    timeline.subDeviceAccessor = actuator;
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
  for (TimedCommand* timeline : actuatorCommands) {
    timeline->run(time, previousTime);
  }
}
