#include "fakeplatform.h"

#include <gtest/gtest.h>

#include <cstring>

#include "platform/hal/devicemanager.h"
#include "platform/hal/subdevicelist.h"
#include "platform/zr/zrcriticalsectionwrite.h"

namespace {

FakePlatform* platform = nullptr;

struct FakeMutex : ZR::ZRMutexRW {
  bool held = false;
};

const FakeContainer& fake(const hal::AttributeContainer* container) {
  return *static_cast<const FakeContainer*>(container);
}

void recordValue(const std::string& call, float value) {
  if (platform->recording) {
    platform->record(call + " " + textOf(value));
  }
}

}  // namespace

std::string textOf(float value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.9g", static_cast<double>(value));
  return text;
}

FakePlatform::FakePlatform() {
  platform = this;
}

FakePlatform::~FakePlatform() {
  EXPECT_EQ(locksHeld, 0);
  platform = nullptr;
}

FakeContainer& FakePlatform::add(const char* name,
                                 std::initializer_list<const char*> attributeNames,
                                 std::uint8_t kind) {
  FakeContainer& container = containers.emplace_back();
  container.name = const_cast<char*>(name);
  container.kind = kind;
  container.firstAttrIndex = pool.attributeCount;
  for (const char* attributeName : attributeNames) {
    hal::DeviceAttrGeneric& attribute = attributes.emplace_back();
    attribute.typeCode = hal::floatTypeCode;
    attribute.name = const_cast<char*>(attributeName);
    ++pool.attributeCount;
  }
  container.lastAttrIndex = pool.attributeCount - 1;
  return container;
}

FakeContainer& FakePlatform::addActuator(const char* name,
                                         std::initializer_list<const char*> attributeNames) {
  FakeContainer& container = add(name, attributeNames);
  container.actuator = true;
  return container;
}

void FakePlatform::record(const std::string& call) {
  if (recording) {
    calls_ += (calls_.empty() ? "" : ", ") + call;
  }
  if (!failing.empty() && call.find(failing) != std::string::npos) {
    throw FakeFailure(call);
  }
}

std::string FakePlatform::take() {
  std::string taken;
  taken.swap(calls_);
  return taken;
}

namespace ZR {

boost::shared_ptr<ZRMutexRW> ZRMutexRW::createZRMutexRW() {
  platform->record("new lock");
  return boost::shared_ptr<ZRMutexRW>(boost::shared_ptr<FakeMutex>(new FakeMutex));
}

ZRCriticalSectionWrite::ZRCriticalSectionWrite(boost::shared_ptr<ZRMutexRW> mutex)
    : mutex_(std::move(mutex)) {
  platform->record("lock");
  auto& lock = static_cast<FakeMutex&>(*mutex_);
  EXPECT_FALSE(lock.held) << "taken recursively";
  lock.held = true;
  ++platform->locksHeld;
}

ZRCriticalSectionWrite::~ZRCriticalSectionWrite() {
  static_cast<FakeMutex&>(*mutex_).held = false;
  --platform->locksHeld;
  platform->record("unlock");
}

}  // namespace ZR

namespace hal {

DevicePool* getDevicePool() {
  return &platform->pool;
}

DeviceManager* getDeviceManager() {
  static DeviceManager manager;
  return &manager;
}

DeviceAttrGeneric* DeviceManager::getAttrWithIndex(int index) {
  platform->record("attribute " + std::to_string(index));
  const auto position = static_cast<std::size_t>(index);
  return position < platform->attributes.size() ? &platform->attributes[position] : nullptr;
}

const char* DeviceManager::getNameByAttribute(DeviceAttrGeneric* attribute) {
  return attribute->name.get();
}

AttributeContainer* DeviceManager::getAttributeContainerWithIndex(int index, int& position) {
  for (FakeContainer& container : platform->containers) {
    position = index - container.firstAttrIndex;
    if (position >= 0 && index <= container.lastAttrIndex) {
      return &container;
    }
  }
  return nullptr;
}

AttributeContainer* DeviceManager::foundAttributeContainerWithNames(const char* name) {
  for (FakeContainer& container : platform->containers) {
    if (std::strcmp(container.name.get(), name) == 0) {
      return &container;
    }
  }
  return nullptr;
}

void DeviceAttrGeneric::set(const AttrGeneric& newValue) {
  recordValue("set", newValue.asFloat);
  value = newValue;
}

void DeviceAttrGeneric::trackChange() {
  recordValue("track", value.asFloat);
}

const char* AttributeContainerAccessor::getName() const {
  platform->record(std::string("name of ") + container_->name.get());
  return container_->name.get();
}

int AttributeContainerAccessor::getFirstAttrIndex() {
  return container_->firstAttrIndex;
}

int AttributeContainerAccessor::getLastAttrIndex() {
  return container_->lastAttrIndex;
}

bool SubDeviceAccessor::isActuator() const {
  return fake(container_).actuator;
}

bool SubDeviceAccessor::isInterpolationPossible() const {
  return fake(container_).interpolation;
}

float SubDeviceAccessor::getValueFloat() const {
  auto& actuator = const_cast<FakeContainer&>(fake(container_));
  platform->record("read");
  if (actuator.readings.empty()) {
    return actuator.command;
  }
  const float reading = actuator.readings.front();
  actuator.readings.pop_front();
  return reading;
}

float SubDeviceAccessor::limitMinMaxFloat(float value) const {
  recordValue("limit", value);
  const float raised = value < fake(container_).minimum ? fake(container_).minimum : value;
  return raised > fake(container_).maximum ? fake(container_).maximum : raised;
}

void SubDeviceAccessor::setValueFloat(float value) {
  recordValue("write", value);
  const_cast<FakeContainer&>(fake(container_)).command = value;
}

AttributeContainerIterator::AttributeContainerIterator(unsigned char selection)
    : selection_(selection) {}

bool AttributeContainerIterator::operator==(AttributeContainerIterator& other) {
  return position_ == other.position_;
}

SubDeviceAccessor* SubDeviceIterator::operator->() {
  current_ = SubDeviceAccessor(&platform->containers[static_cast<std::size_t>(position_)]);
  return &current_;
}

SubDeviceAccessor& SubDeviceIterator::operator*() {
  return *operator->();
}

void SubDeviceIterator::operator++(int) {
  ++position_;
}

SubDeviceIterator SubDeviceList::find() {
  return SubDeviceIterator(1);
}

SubDeviceIterator SubDeviceList::end() {
  SubDeviceIterator past(1);
  past.position_ = static_cast<int>(platform->containers.size());
  return past;
}

}  // namespace hal
