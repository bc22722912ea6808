#include "fakeplatform.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "platform/hal/devicemanager.h"
#include "platform/hal/subdevicelist.h"
#include "platform/zr/zrcriticalsectionwrite.h"
#include "platform/zr/zrpreferencesproxy.h"

FakeContainer& FakePlatform::add(const char* name,
                                 std::initializer_list<const char*> attributeNames) {
  FakeContainer& container = containers[name];
  container.name = const_cast<char*>(name);
  container.firstAttrIndex = pool.attributeCount;
  for (const char* attributeName : attributeNames) {
    attributes[pool.attributeCount].typeCode = hal::floatTypeCode;
    attributes[pool.attributeCount].name = const_cast<char*>(attributeName);
    owners[pool.attributeCount++] = &container;
  }
  container.lastAttrIndex = pool.attributeCount - 1;
  return container;
}

hal::Preference& FakePlatform::prefer(FakeContainer& owner, const char* name,
                                      std::uint8_t typeCode) {
  hal::Preference& added = preferences.emplace_back();
  added.owner = &owner;
  added.name = const_cast<char*>(name);
  added.typeCode = typeCode;
  added.inUse = 1;
  preferenceTable.emplace_back(&added);
  pool.preferences = preferenceTable.data();
  ++pool.preferenceCount;
  return added;
}

FakePlatform& FakePlatform::visit() {
  return fails != nullptr && fails() ? throw FakeFailure() : *this;
}

FakePlatform& FakePlatform::record(const std::string& call) {
  note(call);
  return visit();
}

void FakePlatform::note(const std::string& call) {
  calls.append(calls.empty() ? "" : " ").append(call);
}

std::string callWith(const char* name, float value) {
  char text[64];
  std::snprintf(text, sizeof text, "%s:%.9g", name, std::isnan(value) ? NAN : double{value});
  return text;
}

namespace {
struct FakeMutex : ZR::ZRMutexRW {};

struct FakeProxy : ZR::ZRProxy {
  ~FakeProxy() override { FakePlatform::used->note("end"); }
};

/// The container that an accessor stands for, as every operation of it looks at it.
FakeContainer& visited(hal::AttributeContainer* container) {
  FakePlatform::used->visit();
  return *static_cast<FakeContainer*>(container);
}

/// The value with this key; null when there is none.
template <class Map, class Key>
typename Map::mapped_type* find(Map& map, const Key& key) {
  const auto found = map.find(key);
  return found == map.end() ? nullptr : &found->second;
}
}  // namespace

boost::shared_ptr<ZR::ZRProxy> FakeBroker::getProxy(const std::string& moduleName, int option) {
  FakePlatform::used->record("get:" + moduleName + ":" + std::to_string(option));
  return boost::shared_ptr<FakeProxy>(new FakeProxy);
}

namespace ZR {
boost::shared_ptr<ZRMutexRW> ZRMutexRW::createZRMutexRW() {
  FakePlatform::used->record("new-lock");
  return boost::shared_ptr<FakeMutex>(new FakeMutex);
}

ZRCriticalSectionWrite::ZRCriticalSectionWrite(boost::shared_ptr<ZRMutexRW> mutex)
    : mutex_(std::move(mutex)) {
  FakePlatform& platform = *FakePlatform::used;
  platform.record(platform.locksHeld == 0 ? "lock" : "lock-inside-another");
  ++platform.locksHeld;
  platform.locked();
}

ZRCriticalSectionWrite::~ZRCriticalSectionWrite() {
  FakePlatform::used->unlocked();
  FakePlatform::used->note("unlock");
  --FakePlatform::used->locksHeld;
}

ZRPreferencesProxy::ZRPreferencesProxy(boost::shared_ptr<ZRProxy> service)
    : service_(std::move(service)) {
  FakePlatform::used->visit();
}

void ZRPreferencesProxy::writePrefFile(const std::string& fileName, const ZRValue& tree,
                                       const bool& flag) {
  FakePlatform::used->written = tree;
  FakePlatform::used->record("file:" + fileName + (flag ? ":true" : ":false"));
}
}  // namespace ZR

namespace hal {
DevicePool* getDevicePool() {
  return &FakePlatform::used->visit().pool;
}

DeviceManager* getDeviceManager() {
  FakePlatform::used->visit();
  static DeviceManager manager;
  return &manager;
}

DeviceAttrGeneric* DeviceManager::getAttrWithIndex(int index) {
  return find(FakePlatform::used->record("attribute-" + std::to_string(index)).attributes, index);
}

const char* DeviceManager::getNameByAttribute(DeviceAttrGeneric* attribute) {
  FakePlatform::used->visit();
  return attribute->name.get();
}

AttributeContainer* DeviceManager::getAttributeContainerWithIndex(int index, int& /*position*/) {
  return FakePlatform::used->visit().owners[index];
}

AttributeContainer* DeviceManager::foundAttributeContainerWithNames(const char* name) {
  return find(FakePlatform::used->visit().containers, name);
}

void DeviceAttrGeneric::set(const AttrGeneric& newValue) {
  FakePlatform::used->record(callWith("set", newValue.asFloat));
  value = newValue;
}

void DeviceAttrGeneric::trackChange() {
  FakePlatform::used->record(callWith("track", value.asFloat));
}

const char* AttributeContainerAccessor::getName() const {
  return visited(container_).name.get();
}

int AttributeContainerAccessor::getFirstAttrIndex() {
  return visited(container_).firstAttrIndex;
}

int AttributeContainerAccessor::getLastAttrIndex() {
  return visited(container_).lastAttrIndex;
}

bool SubDeviceAccessor::isActuator() const {
  return visited(container_).actuator;
}

bool SubDeviceAccessor::isInterpolationPossible() const {
  return visited(container_).interpolation;
}

float SubDeviceAccessor::getValueFloat() const {
  FakePlatform::used->note("read");
  FakeContainer& read = visited(container_);
  return std::exchange(read.command, read.command + read.drift);
}

float SubDeviceAccessor::limitMinMaxFloat(float value) const {
  FakePlatform::used->note(callWith("limit", value));
  const float limit = visited(container_).limit;
  return std::clamp(value, -limit, limit);
}

void SubDeviceAccessor::setValueFloat(float value) {
  FakePlatform::used->note(callWith("write", value));
  visited(container_).command = value;
}

AttributeContainerIterator::AttributeContainerIterator(unsigned char selection)
    : selection_(selection) {
  FakePlatform::used->visit();
}

bool AttributeContainerIterator::operator==(AttributeContainerIterator& other) {
  FakePlatform::used->visit();
  return position_ == other.position_;
}

SubDeviceAccessor* SubDeviceIterator::operator->() {
  auto& containers = FakePlatform::used->visit().containers;
  current_ = SubDeviceAccessor(&std::next(containers.begin(), position_)->second);
  return &current_;
}

SubDeviceAccessor& SubDeviceIterator::operator*() {
  return *operator->();
}

void SubDeviceIterator::operator++(int) {
  FakePlatform::used->visit();
  ++position_;
}

SubDeviceIterator SubDeviceList::find() {
  return SubDeviceIterator(1);
}

SubDeviceIterator SubDeviceList::end() {
  SubDeviceIterator past(1);
  past.position_ = static_cast<int>(FakePlatform::used->containers.size());
  return past;
}
}  // namespace hal
