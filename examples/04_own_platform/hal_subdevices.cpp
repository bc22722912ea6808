// Set-up: the walk over all sub-devices, and what each is asked on the way.

#include "memory.h"
#include "platform/hal/subdevicelist.h"

namespace hal {

AttributeContainerIterator::AttributeContainerIterator(unsigned char selection)
    : selection_(selection) {}

// The walk owes every sub-device once, and an end: one left out is never driven,
// one met twice is driven twice a cycle, and without an end the start-up hangs.
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

// Owe the run of the container's attributes, both ends included. A run too short
// hides "Value" and the joint is never driven; one too long takes a neighbour's.
int AttributeContainerAccessor::getFirstAttrIndex() {
  return container_->firstAttrIndex;
}
int AttributeContainerAccessor::getLastAttrIndex() {
  return container_->lastAttrIndex;
}

// Owes a text that is never null: the keys of all attributes are made of it.
const char* AttributeContainerAccessor::getName() const {
  return container_->name.get();
}

// Owe the same answer always, since they are asked once. A sensor that calls itself
// an actuator is written to; an actuator that may not be interpolated moves in steps.
bool SubDeviceAccessor::isActuator() const {
  return true;
}
bool SubDeviceAccessor::isInterpolationPossible() const {
  return true;
}

}  // namespace hal
