#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <functional>
#include <sstream>
#include <thread>

#include "host/base/outputfile.h"
#include "host/base/usererror.h"
#include "host/recording/flightrecorder.h"
#include "host/recording/jointstate.h"
#include "host/recording/mcapreader.h"
#include "host/recording/mcapwriter.h"
#include "host/recording/recordedrun.h"
#include "host/recording/recorder.h"
#include "tests/host/prepared.h"
#include "tests/support/random.h"

namespace host {
namespace {

using namespace std::string_literals;

/// All that a reader hands out; each message as "channel time data".
struct Collected : McapHandler {
  std::vector<std::string> messages;
  std::string others;

  void take(const McapMessage& message) override { messages.push_back(shown(message)); }
  void take(const McapSchema& schema) override { others += schema.name + schema.data; }
  void take(const McapChannel& channel) override { others += channel.topic + channel.encoding; }
  void take(const McapAttachment& attachment) override {
    others += attachment.name + attachment.mediaType + attachment.data;
  }
  void take(const McapMetadata& metadata) override {
    others += metadata.name + metadata.values.begin()->first + metadata.values.begin()->second;
  }

  static std::string shown(const McapMessage& message) {
    return std::to_string(message.channel) + " " + std::to_string(message.logTime) + " " +
           std::string(message.data);
  }
};

/// A file of three channels, and what it holds.
struct Written {
  std::string bytes;
  std::vector<std::string> messages;
  /// How many messages had been written when the file had grown to a size.
  std::vector<std::pair<std::size_t, std::size_t>> grown;

  explicit Written(unsigned seed) {
    Random random(seed);
    std::size_t handedOver = 0;
    McapWriter writer(
        [&](const char* data, std::size_t count) {
          bytes.append(data, count);
          grown.emplace_back(bytes.size(), handedOver);
        },
        "test");
    writer.addMetadata({"about", {{"key", "value"}}});
    writer.addAttachment({1, 2, "robot.urdf", "text/xml", "<robot/>"});
    const std::uint16_t schema = writer.addSchema("S", "jsonschema", "{}");
    for (const char* const topic : {"a", "b", "c"}) {
      writer.addChannel(schema, topic, "json");
    }
    std::uint64_t timeNs = 5'000'000'000;
    for (std::uint32_t i = 0; i < 400; ++i) {
      timeNs += random.below(20'000'000);
      const auto channel = static_cast<std::uint16_t>(1 + random.below(3));
      const std::string data(random.below(random.chance(2) ? 100'000 : 200), 'x');
      writer.addMessage(channel, timeNs, data + std::to_string(i));
      messages.push_back(Collected::shown({channel, 0, timeNs, timeNs, data + std::to_string(i)}));
      handedOver = messages.size();
    }
    writer.finish();
  }
};

bool holdsInOrder(const std::vector<std::string>& all, const std::vector<std::string>& some) {
  auto next = all.begin();
  return std::all_of(some.begin(), some.end(), [&](const std::string& message) {
    next = std::find(next, all.end(), message);
    return next != all.end() && next++ != all.end();
  });
}

TEST(Mcap, ReadsByIndexAndAsAStreamWhatItWrote) {
  const Written written(1);
  std::istringstream stream(written.bytes);
  McapReader reader(stream);
  Collected streamed;
  const McapEnd end = reader.readAll(streamed);
  EXPECT_TRUE(end.isWhole && end.faults.empty());
  EXPECT_EQ(streamed.messages, written.messages);
  EXPECT_EQ(streamed.others, "aboutkeyvaluerobot.urdftext/xml<robot/>S{}ajsonbjsoncjson");

  const McapSummary summary = reader.readSummary();
  EXPECT_EQ(summary.chunks.size(), end.chunks);
  EXPECT_GT(end.chunks, 3U);
  EXPECT_EQ(summary.statistics.messages, 400U);
  EXPECT_EQ(summary.channels.size(), 3U);
  EXPECT_EQ(summary.attachments.at(0).size, 8U);
  std::size_t found = 0;
  for (std::uint16_t channel = 1; channel <= 3; ++channel) {
    Collected indexed;
    reader.readMessages(summary, channel, 0, ~std::uint64_t{0}, indexed);
    EXPECT_TRUE(holdsInOrder(written.messages, indexed.messages));
    EXPECT_EQ(indexed.messages.size(), summary.statistics.messagesByChannel.at(channel));
    found += indexed.messages.size();
  }
  EXPECT_EQ(found, 400U);
}

TEST(Mcap, GivesAllChunksBeforeACut) {
  const Written written(2);
  Random random(3);
  for (int round = 0; round < 300; ++round) {
    const std::size_t size = 8 + random.below(static_cast<std::uint32_t>(written.bytes.size() - 8));
    std::istringstream stream(written.bytes.substr(0, size));
    McapReader reader(stream);
    Collected left;
    const McapEnd end = reader.readAll(left);
    EXPECT_FALSE(end.isWhole);
    EXPECT_THROW((void)reader.readSummary(), RecordingFault);
    std::size_t least = 0;
    for (const auto& [bytes, messages] : written.grown) {
      // The last message that was handed over opened the next chunk.
      least = bytes <= size ? messages : least;
    }
    ASSERT_GE(left.messages.size(), least) << size;
    ASSERT_TRUE(std::equal(left.messages.begin(), left.messages.end(), written.messages.begin()));
  }
}

TEST(Mcap, NeverGivesADamagedMessage) {
  const Written written(4);
  Random random(5);
  for (int round = 0; round < 300; ++round) {
    std::string bytes = written.bytes;
    for (std::uint32_t flips = 1 + random.below(3); flips > 0; --flips) {
      // Mostly where lengths and offsets are.
      const bool atEnd = random.chance(50);
      const std::size_t at = atEnd ? bytes.size() - 1 - random.below(2000)
                                   : 8 + random.below(static_cast<std::uint32_t>(bytes.size() - 8));
      bytes[at] =
          static_cast<char>(static_cast<unsigned char>(bytes[at]) ^ (1U << random.below(8)));
    }
    std::istringstream stream(bytes);
    McapReader reader(stream);
    Collected left;
    const McapEnd end = reader.readAll(left);
    ASSERT_TRUE(holdsInOrder(written.messages, left.messages)) << round;
    EXPECT_TRUE(left.messages.size() == 400 || !end.faults.empty()) << round;
    try {
      Collected indexed;
      reader.readMessages(reader.readSummary(), 2, 0, ~std::uint64_t{0}, indexed);
      ASSERT_TRUE(holdsInOrder(written.messages, indexed.messages)) << round;
    } catch (const RecordingFault&) {
    }
  }
}

TEST(JointState, IsEncodedAsRos2DoesIt) {
  JointStateEncoder encoder({"ab", "c"});
  const std::string message(encoder.encoded(3'000'000'007, {1.0, -2.0}));
  EXPECT_EQ(message,
            "\0\1\0\0"s                               //
            "\3\0\0\0\7\0\0\0\1\0\0\0\0\0\0\0"s       // stamp, frame
            "\2\0\0\0\3\0\0\0ab\0\0\2\0\0\0c\0\0\0"s  // names
            "\2\0\0\0\0\0\0\0\0\0\xf0\x3f"s           // positions
            "\0\0\0\0\0\0\0\xc0\0\0\0\0\0\0\0\0"s);   // no velocities, no efforts
  const JointState state = decodedJointState(message);
  EXPECT_EQ(state.timeNs, 3'000'000'007U);
  EXPECT_EQ(state.names, (std::vector<std::string>{"ab", "c"}));
  EXPECT_EQ(state.positions, (std::vector<double>{1.0, -2.0}));
  for (std::size_t size = 0; size < message.size(); ++size) {
    EXPECT_THROW((void)decodedJointState(message.substr(0, size)), RecordingFault);
  }
}

TEST(MessageRing, KeepsTheLatestThatFit) {
  constexpr std::size_t headBytes = 24;
  constexpr std::size_t size = 1000;
  Random random(6);
  MessageRing ring(size);
  std::deque<std::string> model;
  std::size_t bytes = 0;
  for (std::uint64_t number = 0; number < 3000; ++number) {
    const std::string data(random.below(random.chance(2) ? 1100 : 120), 'a');
    model.push_back(std::to_string(number) + data);
    bytes += model.back().size() + headBytes;
    for (; bytes > size; model.pop_front()) {
      bytes -= model.front().size() + headBytes;
    }
    ring.add(7, number, std::to_string(number) + data);
    ASSERT_EQ(ring.end().number, number + 1);
    ASSERT_EQ(ring.begin().number, number + 1 - model.size());
    MessageRing::Place place = ring.begin();
    for (const std::string& expected : model) {
      MessageRing::Message message;
      ring.read(place, message);
      ASSERT_EQ(message.data, expected);
      ASSERT_EQ(message.timeNs + 1, place.number);
    }
  }
}

/// What a ring is given, and the files that it has to make of that.
struct RingRun {
  static constexpr std::int64_t cycleMs = 10;
  static constexpr std::int64_t keptMs = 1000;

  Prepared setup{2, 1, 10};
  std::vector<std::int64_t> rows;
  std::vector<std::int64_t> events;
  /// Triggers and the moments of their files.
  std::vector<std::pair<std::int64_t, std::int64_t>> granted;
  std::uint64_t leftOut = 0;
  RingFiles const* files = nullptr;
  std::optional<Recorder> recorder;

  RingRun() {
    RecordingHead head;
    head.isSimulated = true;
    head.cycleMs = cycleMs;
    head.columns = {"j0/command", "j0/measured"};
    head.axes.push_back({setup.machine.actuator(0), "j0/Value", 0, 1});
    auto ring = std::make_unique<FlightRecorder>(
        RingOptions{keptMs / 1000.0, setup.temporary.path("made"), 4}, setup.machine, head);
    files = &ring->files();
    recorder.emplace(head, std::move(ring), [](const std::string& why) { FAIL() << why; });
  }
  void tell(EventKind kind) {
    const std::int64_t timeMs = rows.empty() ? 0 : rows.back();
    events.push_back(timeMs);
    recorder->tell({kind, Fault::none, timeMs}, nullptr);
    const std::int64_t last = granted.empty() ? -RingFiles::leastBetweenMs : granted.back().second;
    const std::int64_t dueMs = std::max(timeMs, last + RingFiles::leastBetweenMs);
    if (kind == EventKind::taken || (timeMs < last + RingFiles::afterMs && !granted.empty())) {
      return;
    }
    const bool isGranted = dueMs - timeMs <= keptMs && granted.size() < 4;
    isGranted ? void(granted.emplace_back(timeMs, dueMs)) : void(++leftOut);
  }
  void row() {
    rows.push_back(rows.empty() ? 0 : rows.back() + cycleMs);
    recorder->rows().pushWaiting({static_cast<double>(rows.back()), 0.0, 1.0, 2.0});
  }
  /// What a file holds; its numbers rise.
  struct Seen {
    std::vector<std::int64_t> rows;
    std::vector<std::uint64_t> events;
    std::uint64_t dropped = 0;
  };
  [[nodiscard]] Seen seenIn(const RingFiles::File& file, std::int64_t triggerMs) const {
    Seen seen;
    std::vector<std::uint64_t> numbers;
    RecordedRun::Handler handler;
    handler.row = [&](const auto& row) { seen.rows.push_back(static_cast<std::int64_t>(row[0])); };
    handler.event = [&](const Json& event) {
      numbers.push_back(event.at("number"));
      event.at("kind") == "dropped_events"
          ? void(seen.dropped += event.at("count").get<std::uint64_t>())
          : seen.events.push_back(numbers.back());
    };
    const RecordedRun run = RecordedRun::read(files->pathOf(file), handler);
    EXPECT_TRUE(run.end.isWhole);
    EXPECT_EQ(run.bytes, file.bytes);
    EXPECT_FALSE(run.head.beginsAtStart());
    EXPECT_EQ(std::make_pair(run.head.trigger, run.head.triggerMs),
              std::make_pair("held"s, triggerMs));
    EXPECT_EQ(std::adjacent_find(numbers.begin(), numbers.end(), std::greater_equal<>()),
              numbers.end());
    return seen;
  }
  void expectFile(const RingFiles::File& file, std::int64_t triggerMs, std::int64_t dueMs) const {
    const Seen seen = seenIn(file, triggerMs);
    const std::int64_t firstMs = std::max(dueMs - keptMs, rows.front());
    const std::int64_t lastMs = std::min(dueMs + RingFiles::afterMs, rows.back());
    ASSERT_EQ(seen.rows.size(), static_cast<std::size_t>((lastMs - firstMs) / cycleMs + 1));
    EXPECT_EQ(std::make_pair(seen.rows.front(), seen.rows.back()), std::make_pair(firstMs, lastMs));
    const std::vector<std::uint64_t> expected = eventsOf(firstMs, lastMs, dueMs);
    ASSERT_EQ(seen.events.size() + seen.dropped, expected.size());
    EXPECT_TRUE(std::equal(seen.events.rbegin(), seen.events.rend(), expected.rbegin()));
  }

 private:
  [[nodiscard]] std::vector<std::uint64_t> eventsOf(std::int64_t firstMs, std::int64_t lastMs,
                                                    std::int64_t dueMs) const {
    std::vector<std::uint64_t> numbers;
    for (std::size_t i = 0; i < events.size(); ++i) {
      const bool isBefore = events[i] < lastMs || lastMs < dueMs + RingFiles::afterMs;
      if (events[i] >= firstMs && isBefore) {
        numbers.push_back(i);
      }
    }
    return numbers;
  }
};

TEST(Ring, WritesWhatWasBeforeATriggerAndWhatCameAfterIt) {
  Random random(7);
  for (int round = 0; round < 4; ++round) {
    RingRun run;
    for (std::uint32_t i = 0, count = 100 + random.below(5000); i < count; ++i) {
      run.row();
      // Once more than there is room for.
      std::uint32_t n = random.chance(30) ? random.below(30) : 0;
      for (n = i == count / 2 ? 12'000 : n; n > 0; --n) {
        run.tell(EventKind::taken);
      }
      if (random.below(1000) < 4) {
        run.tell(EventKind::held);
      }
    }
    run.tell(EventKind::held);
    run.recorder->finish();
    const std::vector<RingFiles::File> files = run.files->from(0);
    ASSERT_EQ(files.size(), run.granted.size());
    EXPECT_EQ(run.files->leftOut(), run.leftOut);
    for (std::size_t i = 0; i < files.size(); ++i) {
      ASSERT_EQ(files[i].state, RingFiles::State::written) << files[i].fault;
      run.expectFile(files[i], run.granted[i].first, run.granted[i].second);
    }
  }
}

TEST(Ring, GoesOnWhenAFileCannotBeWritten) {
  RingRun run;
  std::filesystem::remove_all(run.files->folder());
  for (std::int64_t i = 0; i <= RingFiles::leastBetweenMs / RingRun::cycleMs; ++i) {
    run.row();
    if (i == 0) {
      run.tell(EventKind::held);
    }
  }
  while (run.files->from(0).empty() || run.files->from(0)[0].state == RingFiles::State::waiting) {
    std::this_thread::yield();
  }
  EXPECT_EQ(run.files->from(0)[0].state, RingFiles::State::failed);
  std::filesystem::create_directory(run.files->folder());
  run.tell(EventKind::held);
  run.recorder->finish();
  const std::vector<RingFiles::File> files = run.files->from(1);
  ASSERT_EQ(files.size(), 1U);
  EXPECT_EQ(files[0].state, RingFiles::State::written) << files[0].fault;
}

TEST(Ring, NeverTakesThePlaceOfAFile) {
  const Temporary temporary;
  OutputFile file(temporary.path("x"), OutputFile::Present::kept);
  file.write("new", 3);
  (void)temporary.write("x", "old");
  EXPECT_THROW(file.commit(), std::system_error);
  EXPECT_THROW(OutputFile(temporary.path("x"), OutputFile::Present::kept), UserError);
  EXPECT_EQ(std::filesystem::file_size(temporary.path("x")), 3U);
  RingFiles files(temporary.path("."), "a/b", 0, 1);
  RingFiles others(temporary.path("."), "a/b", 0, 1);
  const std::string name = files.ask("held", 0).file->name;
  EXPECT_EQ(name.substr(0, 4), "a_b-");
  EXPECT_NE(others.ask("held", 0).file->name, name);
  files.begin();
  files.done(0, "full");
  EXPECT_EQ(files.limit(), "");
  EXPECT_NE(files.ask("held", RingFiles::leastBetweenMs).file->name, name);
  EXPECT_NE(files.limit(), "");
}

}  // namespace
}  // namespace host
