// Operations on the timelines of a machine, which the bytes of an input choose, compared
// with the model after each.

#include "require.h"
#include "tests/library/modelworld.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::uint8_t* const end = data + size;
  model::World world([&](std::uint32_t below) {
    std::uint32_t number = 0;
    for (std::uint64_t reach = 1; reach < below && data != end; reach *= 256) {
      number = number * 256 + *data++;
    }
    return number % below;
  });
  while (data != end) {
    const std::string difference = world.step();
    require(difference.empty(), difference);
  }
  return 0;
}
