// Whatever a client may send on a WebSocket.

#include "doorinput.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string handshake =
      "GET / HTTP/1.1\r\nHost: localhost\r\nConnection: Upgrade\r\nUpgrade: websocket\r\n"
      "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n";
  const std::string answer =
      answerTo(handshake + std::string(reinterpret_cast<const char*>(data), size));
  // A door that ends a connection with something unread resets it.
  require(answer.empty() || answer.rfind("HTTP/1.1 101 ", 0) == 0, answer);
  return 0;
}
