// For the set-up: the iteration over all sub-devices, and the questions to each of them.

#include "memory.h"
#include "platform/hal/subdevicelist.h"

namespace hal {

AttributeContainerIterator::AttributeContainerIterator(unsigned char selection)
    : selection_(selection) {}

// The iteration must visit each sub-device once, and end. A missing one is never driven,
// one that is visited twice is driven twice per cycle, and without an end the start-up hangs.
bool AttributeContainerIterator::operator==(AttributeContainerIterator& other) {
  return position_ == other.position_;
}
SubDeviceIterator SubDeviceList::find() {
  return SubDeviceIterator(1);
}
SubDeviceIterator SubDeviceList::end() {
  SubDeviceIterator pastLast(1);
  pastLast.position_ = Memory::jointCount;
  return pastLast;
}
void SubDeviceIterator::operator++(int) {
  ++position_;
}
SubDeviceAccessor* SubDeviceIterator::operator->() {
  current_ = SubDeviceAccessor(&memory.joints[position_]);
  return &current_;
}
SubDeviceAccessor& SubDeviceIterator::operator*() {
  return *operator->();
}

// Must return the range of the container's attributes, both ends included. A short range
// hides "Value", and the joint is never driven; a long one includes a neighbour's attributes.
int AttributeContainerAccessor::getFirstAttrIndex() {
  return container_->firstAttrIndex;
}
int AttributeContainerAccessor::getLastAttrIndex() {
  return container_->lastAttrIndex;
}

// Must never return null: the keys of all attributes are made from this text.
const char* AttributeContainerAccessor::getName() const {
  return container_->name.get();
}

// Must always return the same answer, because the library asks once. It writes to a sensor
// that claims to be an actuator. An actuator that may not be interpolated moves in steps.
bool SubDeviceAccessor::isActuator() const {
  return true;
}
bool SubDeviceAccessor::isInterpolationPossible() const {
  return true;
}

}  // namespace hal
