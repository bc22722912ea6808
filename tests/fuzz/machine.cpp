// Machine files, as text; one may name the URDF few.urdf, or itself.

#include "host/input/machinefile.h"
#include "input.h"
#include "tests/support/temporary.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Temporary folder;
  static const std::string urdf = folder.write(
      "few.urdf",
      "<robot name='r'><joint name='a' type='revolute'><limit lower='-1' upper='2' velocity='3'/>"
      "</joint><joint name='t' type='revolute'><mimic joint='a'/></joint></robot>");
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::string path = folder.write("m.yaml", text);
  take(path, text, [&] { requireSound(host::readMachineFile(path)); });
  return 0;
}
