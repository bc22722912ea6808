// Recordings: whatever the bytes are, they are read by index and as a stream, or refused. What
// begins with a brace is messages of a journal, a line each.

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>

#include "host/recording/jointstate.h"
#include "host/recording/journalparser.h"
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

/// Of three actuators, the last one of whole numbers.
const host::MachineModel& machine() {
  static const host::MachineModel model = [] {
    host::MachineModel made;
    made.description.actuators.resize(3);
    made.description.actuators.back().typeCode = 2;
    return made;
  }();
  return model;
}

void takeJournal(std::istream& lines) {
  host::JournalParser parser(machine());
  host::JournalEntry batch;
  for (std::string line; std::getline(lines, line);) {
    const host::Json message = host::Json::parse(line, nullptr, false);
    attempt([&] {
      const auto entry = parser.take(message);
      if (entry && entry->kind == host::JournalEntry::Kind::batch) {
        const host::CommandBatch& commands = *entry->batch.commands;
        require(commands.values.size() == commands.times.size() * commands.actuators.size(),
                "a value for each");
        batch = *entry;
      }
      if (entry && entry->kind == host::JournalEntry::Kind::take) {
        require(batch.batch.commands != nullptr && batch.number == entry->number &&
                    batch.atMs <= entry->atMs,
                "it takes points of a batch that came");
        const std::vector<int>& named = batch.batch.commands->actuators;
        require(std::all_of(
                    entry->actuators.begin(), entry->actuators.end(),
                    [&](int taker) { return std::count(named.begin(), named.end(), taker) == 1; }),
                "those that it names take them");
      }
    });
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::istringstream stream(std::string(reinterpret_cast<const char*>(data), size));
  if (stream.peek() == '{') {
    takeJournal(stream);
    return 0;
  }
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
