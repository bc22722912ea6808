#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "host/recording/jointstate.h"
#include "host/recording/mcapreader.h"
#include "host/recording/mcapwriter.h"
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

}  // namespace
}  // namespace host
