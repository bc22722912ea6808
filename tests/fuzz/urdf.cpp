// URDF files, as text.

#include "host/input/urdf.h"

#include "input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  take("r.urdf", text, [&] { requireSound(host::readUrdf("r.urdf", text)); });
  return 0;
}
