// The functions that the library calls in the control cycle, while it holds the
// lock of the timelines. None of them may wait, allocate memory or call the library:
// the cycle would be late, or wait for itself for ever.

#include <cmath>

#include "memory.h"
#include "platform/hal/subdeviceaccessor.h"

namespace hal {
namespace {

Joint& jointOf(AttributeContainer* container) {
  return static_cast<Joint&>(*container);
}

}  // namespace

// The first duty: a written value reads back unchanged, bit for bit, until somebody
// else writes. Otherwise every cycle concludes that somebody else moved the joint, and
// starts again from the value it reads: the joint falls behind and jumps at the end.
// So keep the float itself here, and convert it only on the way to the motor.
float SubDeviceAccessor::getValueFloat() const {
  return jointOf(container_).value().loadFloat();
}

void SubDeviceAccessor::setValueFloat(float value) {
  constexpr float steps = 256.0F;
  jointOf(container_)
      .value()
      .storeFloat(memory.registerRounds ? std::round(value * steps) / steps : value);
}

// Must return a value within the limits: nothing after it checks them, and otherwise
// the motor goes wherever commands send it. Not-a-number is returned unchanged.
float SubDeviceAccessor::limitMinMaxFloat(float value) const {
  Joint& joint = jointOf(container_);
  const float minimum = joint.minimum().loadFloat();
  const float maximum = joint.maximum().loadFloat();
  return value < minimum ? minimum : value > maximum ? maximum : value;
}

// For commands of any type that are not interpolated. Must store the whole record at
// once; otherwise another thread could read half of the old value and half of the new.
void DeviceAttrGeneric::set(const AttrGeneric& newValue) {
  AttrGeneric stored = newValue;
  __atomic_store(&value, &stored, __ATOMIC_RELAXED);
  if (tracksChanges()) {
    trackChange();
  }
}

// Must change the count; otherwise those who wait for changes miss this one.
void DeviceAttrGeneric::trackChange() {
  __atomic_fetch_add(&changeCount, 1, __ATOMIC_RELAXED);
}

}  // namespace hal
