#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace host {

/// A request as it came in, whole.
struct Request {
  std::string method;
  /// Decoded, without the query.
  std::string path;
  /// The parts of the query, decoded, in their order.
  std::vector<std::pair<std::string, std::string>> query;
  std::string contentType;
  std::string body;
  /// Numbers the connections of a door.
  std::uint64_t connection = 0;
  /// When its head was here, on the clock of `bootNs`.
  std::int64_t receivedNs = 0;
  /// Wants a WebSocket.
  bool isUpgrade = false;
  /// `Host`, which is one of this door's; empty where the request came by the socket.
  std::string host;
  /// Came by the socket, or has shown the token or the cookie.
  bool isKnown = false;
};

struct Answer {
  unsigned status = 200;
  std::string body;
  std::string contentType = "application/json";
  /// Further fields of its head.
  std::vector<std::pair<std::string, std::string>> fields;
};

/// All fields of its head but those that HTTP itself needs.
std::vector<std::pair<std::string, std::string>> headFields(const Answer& answer);

/// What a listener is sent as it comes up. I/O thread.
class Feed {
 public:
  Feed() = default;
  Feed(const Feed&) = delete;
  Feed& operator=(const Feed&) = delete;
  virtual ~Feed() = default;

  /// The next message; empty when there is none now. Asked when the listener has taken the
  /// one before, and some hundred times a second while there is none.
  virtual std::string next() = 0;
  /// The listener sent something itself.
  virtual void take(const std::string& /*message*/) {}
};

/// How far a request has come. What waits for its turn may be given up, and is not done then.
enum class Stage : std::uint8_t { begun, waits, givenUp };

/// Who answers what comes through a door. All but `Reply` is of the I/O thread, which must not
/// wait.
class Handler {
 public:
  /// How a request is answered: once, on any thread.
  class Reply {
   public:
    /// Calls what makes the answer on the I/O thread, also when nobody waits for it any more.
    using Send = std::function<void(std::function<Answer()> make)>;

    Reply(Send send, std::shared_ptr<std::atomic<Stage>> stage)
        : send_(std::move(send)), stage_(std::move(stage)) {}
    /// From now on it waits for its turn, until `begin`.
    void postpone() const { *stage_ = Stage::waits; }
    /// False where it was given up: its sender knows that it is not done.
    [[nodiscard]] bool begin() const {
      Stage stage = Stage::waits;
      stage_->compare_exchange_strong(stage, Stage::begun);
      return stage != Stage::givenUp;
    }
    void operator()(Answer answer) const {
      send_([answer = std::move(answer)] { return answer; });
    }
    void later(std::function<Answer()> make) const { send_(std::move(make)); }

   private:
    Send send_;
    std::shared_ptr<std::atomic<Stage>> stage_;
  };

  Handler() = default;
  Handler(const Handler&) = delete;
  Handler& operator=(const Handler&) = delete;
  virtual ~Handler() = default;

  virtual void handle(Request request, const Reply& reply) = 0;
  /// What a request that asks for a stream is to get; none where it asks for none, or wrongly:
  /// then `handle` answers it.
  virtual std::unique_ptr<Feed> feedFor(const Request& request) = 0;
  /// Anyone may ask for it.
  [[nodiscard]] virtual bool isOpenToAll(const Request& head) const = 0;
  /// Never refused for want of room.
  [[nodiscard]] virtual bool isUrgent(const Request& request) const = 0;
  virtual void connectionEnded(std::uint64_t connection) = 0;
};

}  // namespace host
