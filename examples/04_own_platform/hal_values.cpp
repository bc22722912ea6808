// What the library calls inside the control cycle, with the lock of the
// timelines held. None of it may wait, allocate or call the library: the cycle
// would come late, or wait for itself for ever.

#include <cmath>

#include "memory.h"
#include "platform/hal/subdeviceaccessor.h"

namespace hal {
namespace {

Joint& jointOf(AttributeContainer* container) {
  return static_cast<Joint&>(*container);
}

}  // namespace

// The first duty: what was written reads back, bit for bit, until another party
// writes. Else the joint looks moved by somebody in every cycle, each cycle starts
// anew from where it seems to stand, and it falls behind and jumps at the end. So
// keep the float itself here, and convert only on the way to the motor.
float SubDeviceAccessor::getValueFloat() const {
  return jointOf(container_).value().loadFloat();
}

void SubDeviceAccessor::setValueFloat(float value) {
  constexpr float steps = 256.0F;
  jointOf(container_)
      .value()
      .storeFloat(memory.registerRounds ? std::round(value * steps) / steps : value);
}

// Owes a value within the limits, since nothing behind it looks at them; else the
// motor goes where the commands send it. What is not a number comes back as it is.
float SubDeviceAccessor::limitMinMaxFloat(float value) const {
  Joint& joint = jointOf(container_);
  const float minimum = joint.minimum().loadFloat();
  const float maximum = joint.maximum().loadFloat();
  return value < minimum ? minimum : value > maximum ? maximum : value;
}

// Serves commands that are not interpolated, of any type. Owes one store of the
// whole record; else another thread reads half of the old value and half of the new.
void DeviceAttrGeneric::set(const AttrGeneric& newValue) {
  AttrGeneric stored = newValue;
  __atomic_store(&value, &stored, __ATOMIC_RELAXED);
  if (tracksChanges()) {
    trackChange();
  }
}

// Owes a count that changes; else those who wait for changes miss this one.
void DeviceAttrGeneric::trackChange() {
  __atomic_fetch_add(&changeCount, 1, __ATOMIC_RELAXED);
}

}  // namespace hal
