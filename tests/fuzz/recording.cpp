// Recordings: whatever the bytes are, they are read by index and as a stream, or refused.

#include <sstream>

#include "host/recording/jointstate.h"
#include "host/recording/mcapreader.h"
#include "host/recording/recordinghead.h"

#include "input.h"

namespace {

struct Taker : host::McapHandler {
  std::size_t messages = 0;

  void take(const host::McapMessage& message) override {
    ++messages;
    const host::JointState state = host::decodedJointState(message.data);
    require(state.names.size() == state.positions.size(), "as many names as positions");
  }
  void take(const host::McapMetadata& metadata) override {
    (void)host::RecordingHead::from(metadata);
  }
};

template <typename Read>
void attempt(const Read& read) {
  try {
    read();
  } catch (const host::RecordingFault&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::istringstream stream(std::string(reinterpret_cast<const char*>(data), size));
  attempt([&] {
    host::McapReader reader(stream);
    Taker taker;
    const host::McapEnd end = reader.readAll(taker);
    require(end.offset <= size, "it reads no further than there is");
    attempt([&] {
      const host::McapSummary summary = reader.readSummary();
      for (const host::McapChannel& channel : summary.channels) {
        Taker indexed;
        reader.readMessages(summary, channel.id, 0, ~std::uint64_t{0}, indexed);
      }
    });
  });
  return 0;
}
