#pragma once

#include <cstdint>

#include "platform/hal/attributecontainer.h"
#include "platform/hal/deviceattrgeneric.h"
#include "platform/hal/devicepool.h"

/// A sub-device and its attributes.
struct Joint : hal::SubDevice {
  static constexpr int attributeCount = 4;

  /// The command register. The measured value is another attribute.
  hal::DeviceAttrGeneric& value() { return attributes[0]; }
  hal::DeviceAttrGeneric& minimum() { return attributes[1]; }
  hal::DeviceAttrGeneric& maximum() { return attributes[2]; }
  hal::DeviceAttrGeneric& position() { return attributes[3]; }

  hal::DeviceAttrGeneric attributes[attributeCount];
};

/// All data of this platform: the attributes of six joints. Nothing in it may move
/// while the library runs, because the library keeps pointers to the attributes.
struct Memory {
  static constexpr int jointCount = 6;

  Memory() {
    pool.attributeCount = jointCount * Joint::attributeCount;
    for (int i = 0; i < jointCount; ++i) {
      joints[i].name = names[i];
      joints[i].firstAttrIndex = i * Joint::attributeCount;
      joints[i].lastAttrIndex = joints[i].firstAttrIndex + Joint::attributeCount - 1;
      for (int k = 0; k < Joint::attributeCount; ++k) {
        hal::DeviceAttrGeneric& attribute = joints[i].attributes[k];
        attribute.name = attributeNames[k];
        attribute.container = &joints[i];
        attribute.typeCode = hal::floatTypeCode;  // any other is never interpolated
      }
      joints[i].minimum().storeFloat(-2.0F);
      joints[i].maximum().storeFloat(2.0F);
    }
  }

  hal::DeviceAttrGeneric& attribute(int index) {
    return joints[index / Joint::attributeCount].attributes[index % Joint::attributeCount];
  }

  hal::DevicePool pool;
  Joint joints[jointCount];
  char names[jointCount][9] = {"Shoulder", "Elbow", "Wrist", "Hip", "Knee", "Ankle"};
  char attributeNames[Joint::attributeCount][9] = {"Value", "Minimum", "Maximum", "Position"};
  /// Violates the first duty of a platform, to show the consequence.
  bool registerRounds = false;
};

inline Memory memory;
