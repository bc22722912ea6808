// Whatever a client may send to the door.

#include "doorinput.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string answer = answerTo({reinterpret_cast<const char*>(data), size});
  require(answer.empty() || answer.rfind("HTTP/1.1 ", 0) == 0, answer);
  return 0;
}
