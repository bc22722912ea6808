#include "host/recording/jointstate.h"

#include <cstring>

#include "host/base/clocks.h"
#include "host/recording/bytes.h"

namespace host {
namespace {

constexpr std::uint64_t stampSecond = nsPerSecond;
/// CDR, little endian, no options.
constexpr std::string_view encapsulation("\0\1\0\0", 4);

// Fields begin at multiples of their size, counted from behind the encapsulation.

void align(std::string& bytes, std::size_t size) {
  while ((bytes.size() - encapsulation.size()) % size != 0) {
    bytes.push_back('\0');
  }
}

/// With its length, which counts the NUL at its end.
void putString(std::string& bytes, std::string_view text) {
  align(bytes, sizeof(std::uint32_t));
  ByteWriter(bytes).put(static_cast<std::uint32_t>(text.size() + 1));
  bytes.append(text).push_back('\0');
}

void putCount(std::string& bytes, std::size_t count) {
  align(bytes, sizeof(std::uint32_t));
  ByteWriter(bytes).put(static_cast<std::uint32_t>(count));
}

class CdrReader {
 public:
  explicit CdrReader(std::string_view bytes) : reader_(bytes), size_(bytes.size()) {}

  void align(std::size_t size) {
    const std::size_t passed = size_ - reader_.rest().size();
    reader_.take((size - passed % size) % size);
  }
  std::uint32_t number() {
    align(sizeof(std::uint32_t));
    return reader_.get<std::uint32_t>();
  }
  std::string_view text() {
    const std::string_view text = reader_.take(number());
    return text.substr(0, text.empty() ? 0 : text.size() - 1);
  }
  std::vector<double> doubles() {
    const std::uint32_t count = number();
    if (count > reader_.rest().size() / sizeof(double)) {
      throw RecordingFault("a message is shorter than it says");
    }
    std::vector<double> values(count);
    if (count > 0) {
      align(sizeof(double));
    }
    for (double& value : values) {
      const auto bits = reader_.get<std::uint64_t>();
      std::memcpy(&value, &bits, sizeof value);
    }
    return values;
  }
  [[nodiscard]] std::size_t left() const { return reader_.rest().size(); }

 private:
  ByteReader reader_;
  const std::size_t size_;
};

}  // namespace

const char* JointState::schema() {
  return "std_msgs/Header header\n"
         "string[] name\n"
         "float64[] position\n"
         "float64[] velocity\n"
         "float64[] effort\n"
         "================================================================================\n"
         "MSG: std_msgs/Header\n"
         "builtin_interfaces/Time stamp\n"
         "string frame_id\n"
         "================================================================================\n"
         "MSG: builtin_interfaces/Time\n"
         "int32 sec\n"
         "uint32 nanosec\n";
}

JointStateEncoder::JointStateEncoder(const std::vector<std::string>& names)
    : begin_(encapsulation) {
  ByteWriter(begin_).put(std::uint64_t{0});
  putString(begin_, "");
  putCount(begin_, names.size());
  for (const std::string& name : names) {
    putString(begin_, name);
  }
  putCount(begin_, names.size());
  if (!names.empty()) {
    align(begin_, sizeof(double));
  }
}

std::string_view JointStateEncoder::encoded(std::uint64_t timeNs,
                                            const std::vector<double>& positions) {
  std::string stamp;
  ByteWriter(stamp)
      .put(static_cast<std::uint32_t>(timeNs / stampSecond))
      .put(static_cast<std::uint32_t>(timeNs % stampSecond));
  message_.assign(begin_).replace(encapsulation.size(), stamp.size(), stamp);
  ByteWriter writer(message_);
  for (const double position : positions) {
    std::uint64_t bits = 0;
    std::memcpy(&bits, &position, sizeof bits);
    writer.put(bits);
  }
  // No velocities, no efforts.
  putCount(message_, 0);
  putCount(message_, 0);
  return message_;
}

JointState decodedJointState(std::string_view message) {
  if (message.substr(0, encapsulation.size()) != encapsulation) {
    throw RecordingFault("a message is not in little-endian CDR");
  }
  CdrReader reader(message.substr(encapsulation.size()));
  JointState state;
  state.timeNs = reader.number() * stampSecond;
  state.timeNs += reader.number();
  reader.text();
  const std::uint32_t names = reader.number();
  if (names > reader.left() / sizeof(std::uint32_t)) {
    throw RecordingFault("a message is shorter than it says");
  }
  for (std::uint32_t i = 0; i < names; ++i) {
    state.names.emplace_back(reader.text());
  }
  state.positions = reader.doubles();
  reader.doubles();
  reader.doubles();
  if (state.positions.size() != state.names.size()) {
    throw RecordingFault("a message has not as many positions as names");
  }
  return state;
}

}  // namespace host
