#include "host/client/doorclient.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <boost/asio/buffer.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <limits>
#include <nlohmann/json.hpp>
#include <utility>

#include "host/base/stopsignal.h"
#include "host/base/usererror.h"
#include "host/base/visible.h"
#include "host/client/answer.h"
#include "simulation/framework/descriptor.h"

namespace host {
namespace {

namespace beast = boost::beast;
namespace http = beast::http;
using boost::system::error_code;

constexpr int answerMs = 15'000;
constexpr std::uint64_t mostAnswered = std::uint64_t{64} << 20;

error_code systemError() {
  return {errno, boost::system::system_category()};
}

[[noreturn]] void failToConnect(const std::string& path, const std::string& why) {
  throw NoMachine(
      fmt::format("no machine answers at {}: {}; start one with 'torvex serve'", path, why));
}

/// A Unix socket on which nothing takes longer than it may.
class PatientSocket {
 public:
  explicit PatientSocket(const std::string& path)
      : descriptor_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
      failToConnect(path, "the path is too long for a socket");
    }
    path.copy(address.sun_path, path.size());
    if (descriptor_.number() < 0 ||
        connect(descriptor_.number(), reinterpret_cast<const sockaddr*>(&address),
                sizeof address) != 0) {
      failToConnect(path, std::strerror(errno));
    }
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(descriptor_.number(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 ||
        (peer.uid != geteuid() && peer.uid != 0)) {
      failToConnect(path, fmt::format("it belongs to user {}", peer.uid));
    }
  }

  /// How long all that follows may take together.
  void waitAtMost(int milliseconds) {
    deadline_ = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    signal_ = StopSignal::received();
  }

  template <typename Buffers>
  std::size_t read_some(const Buffers& buffers, error_code& error) {
    const auto buffer = beast::buffers_front(buffers);
    if (!isReady(POLLIN, error)) {
      return 0;
    }
    const ssize_t count = recv(descriptor_.number(), buffer.data(), buffer.size(), 0);
    return counted(count, count == 0 ? error_code(boost::asio::error::eof) : error_code(), error);
  }
  template <typename Buffers>
  std::size_t write_some(const Buffers& buffers, error_code& error) {
    const auto buffer = beast::buffers_front(buffers);
    if (!isReady(POLLOUT, error)) {
      return 0;
    }
    return counted(send(descriptor_.number(), buffer.data(), buffer.size(), MSG_NOSIGNAL),
                   error_code(), error);
  }

  // The same with exceptions: the concept of a stream asks for them.
  template <typename Buffers>
  std::size_t read_some(const Buffers& buffers) {
    error_code error;
    const std::size_t count = read_some(buffers, error);
    return error ? throw boost::system::system_error(error) : count;
  }
  template <typename Buffers>
  std::size_t write_some(const Buffers& buffers) {
    error_code error;
    const std::size_t count = write_some(buffers, error);
    return error ? throw boost::system::system_error(error) : count;
  }

 private:
  static std::size_t counted(ssize_t count, error_code whenDone, error_code& error) {
    error = count < 0 ? systemError() : whenDone;
    return count < 0 ? 0 : static_cast<std::size_t>(count);
  }

  /// In short turns: a signal may come just before one.
  bool isReady(short events, error_code& error) {
    constexpr std::chrono::milliseconds turn(50);
    pollfd waited{descriptor_.number(), events, 0};
    error = {};
    do {
      const auto left = deadline_ - std::chrono::steady_clock::now();
      const auto leftMs = std::chrono::duration_cast<std::chrono::milliseconds>(left);
      const int ready =
          poll(&waited, 1,
               static_cast<int>(std::clamp(leftMs, std::chrono::milliseconds(0), turn).count()));
      if (ready > 0) {
        return true;
      }
      if (StopSignal::received() != signal_ || StopSignal::isRepeated()) {
        error = boost::asio::error::interrupted;
        return false;
      }
    } while (std::chrono::steady_clock::now() < deadline_);
    error = boost::asio::error::timed_out;
    return false;
  }

  simulation::Descriptor descriptor_;
  std::chrono::steady_clock::time_point deadline_;
  /// What had come before.
  int signal_ = 0;
};

[[noreturn]] void failClosed(const error_code& error) {
  if (error == boost::asio::error::interrupted) {
    throw WaitStopped();
  }
  if (error == boost::asio::error::timed_out) {
    throw DoorClosed(fmt::format("the machine did not answer within {} s", answerMs / 1000));
  }
  throw DoorClosed("the machine ended before it had answered: " + error.message());
}

/// What a machine sends is JSON; anything else is no machine.
Json parsed(const std::string& text) {
  Json value = Json::parse(text, nullptr, false);
  if (!value.is_object()) {
    throw NoMachine("what answers there is no machine: " + visible(text.substr(0, 80)));
  }
  return value;
}

Json answerOf(unsigned status, const std::string& text) {
  Json answer = parsed(text);
  if (status >= 300) {
    const auto error = answer.find("error");
    throw DoorRefusal(status,
                      error != answer.end() && error->is_object() ? *error : Json::object());
  }
  return answer;
}

/// One thing that is wrong, with where it is: in a file, or in the request.
std::string sentenceOf(unsigned status, const Json& fault) {
  const std::string said = textOf(fault, "message");
  const std::string message = said.empty() ? fmt::format("refused with status {}", status) : said;
  const std::string file = textOf(fault, "file");
  if (!file.empty()) {
    const SourceLocation where{countOf(fault, "line"), countOf(fault, "column")};
    return fmt::format("{}: error: {}", shown({file, where}), message);
  }
  const std::string path = textOf(fault, "path");
  return fmt::format("torvex: error: {}{}{}", path, path.empty() ? "" : ": ", message);
}

std::string sentencesOf(unsigned status, const Json& error) {
  const Json& errors = memberOf(error, "errors");
  std::string text;
  for (const Json& one : errors.is_array() ? errors : Json::array({error})) {
    text += sentenceOf(status, one) + "\n";
  }
  return text;
}

}  // namespace

DoorRefusal::DoorRefusal(unsigned status, const Json& error)
    : std::runtime_error(sentencesOf(status, error)),
      isBadInput_(status < 500 && status != 409 && status != 408),
      reason_(textOf(error, "reason")),
      file_(textOf(error, "file")) {}

class DoorClient::Connection {
 public:
  explicit Connection(const std::string& path) : socket_(path) {}

  Json ask(http::verb verb, const std::string& target, const std::string& body) {
    const auto [status, text] = exchange(verb, target, body);
    return answerOf(status, text);
  }

  std::string askForText(const std::string& target) {
    auto [status, text] = exchange(http::verb::get, target, "");
    if (status >= 300) {
      answerOf(status, text);
    }
    return text;
  }

 private:
  std::pair<unsigned, std::string> exchange(http::verb verb, const std::string& target,
                                            const std::string& body) {
    http::request<http::string_body> request(verb, target, 11, body);
    request.set(http::field::host, "localhost");
    if (!body.empty()) {
      request.set(http::field::content_type, "application/json");
    }
    request.prepare_payload();
    http::response_parser<http::string_body> parser;
    parser.body_limit(mostAnswered);
    socket_.waitAtMost(answerMs);
    error_code error;
    http::write(socket_, request, error);
    // A refusal may come before all was sent.
    error_code readError;
    http::read(socket_, buffer_, parser, readError);
    if (readError) {
      failClosed(error ? error : readError);
    }
    return {parser.get().result_int(), std::move(parser.get().body())};
  }

  PatientSocket socket_;
  beast::flat_buffer buffer_;
};

DoorClient::DoorClient(const std::string& socketPath)
    : connection_(std::make_unique<Connection>(socketPath)) {}
DoorClient::~DoorClient() = default;

Json DoorClient::get(const std::string& target) {
  return connection_->ask(http::verb::get, target, "");
}

std::string DoorClient::getText(const std::string& target) {
  return connection_->askForText(target);
}

Json DoorClient::post(const std::string& target, const Json& body) {
  return connection_->ask(http::verb::post, target,
                          body.dump(-1, ' ', false, Json::error_handler_t::replace));
}

Json DoorClient::remove(const std::string& target) {
  return connection_->ask(http::verb::delete_, target, "");
}

class EventLines::Stream {
 public:
  Stream(const std::string& path, const std::string& target) : socket_(path) {
    http::request<http::empty_body> request(http::verb::get, target, 11);
    request.set(http::field::host, "localhost");
    parser_.body_limit(std::numeric_limits<std::uint64_t>::max());
    socket_.waitAtMost(answerMs);
    error_code error;
    http::write(socket_, request, error);
    if (!error) {
      http::read_header(socket_, buffer_, parser_, error);
    }
    if (error) {
      failClosed(error);
    }
    if (parser_.get().result() != http::status::ok) {
      readAll();
    }
  }

  std::optional<Json> next(int waitMs) {
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(waitMs);
    while (true) {
      if (const std::size_t end = text_.find('\n', begin_); end != std::string::npos) {
        const std::string line = text_.substr(begin_, end - begin_);
        begin_ = end + 1;
        return parsed(line);
      }
      text_.erase(0, std::exchange(begin_, 0));
      const auto left = until - std::chrono::steady_clock::now();
      const auto leftMs = std::max<std::int64_t>(left / std::chrono::milliseconds(1), 0);
      if (parser_.is_done() || !readSome(static_cast<int>(leftMs))) {
        return std::nullopt;
      }
    }
  }

  [[nodiscard]] bool hasEnded() const {
    return parser_.is_done() && text_.find('\n', begin_) == std::string::npos;
  }

 private:
  /// The machine refuses.
  [[noreturn]] void readAll() {
    while (!parser_.is_done() && text_.size() < mostAnswered && readSome(answerMs)) {
    }
    answerOf(parser_.get().result_int(), text_);
    throw DoorClosed("the machine answered otherwise than asked");
  }

  /// False when nothing came.
  bool readSome(int waitMs) {
    std::array<char, 16384> chunk{};
    auto& body = parser_.get().body();
    body.data = chunk.data();
    body.size = chunk.size();
    socket_.waitAtMost(waitMs);
    error_code error;
    http::read_some(socket_, buffer_, parser_, error);
    text_.append(chunk.data(), chunk.size() - body.size);
    if (error == boost::asio::error::timed_out || error == boost::asio::error::interrupted) {
      return false;
    }
    if (error && error != http::error::need_buffer) {
      throw DoorClosed("the machine has ended");
    }
    return true;
  }

  PatientSocket socket_;
  beast::flat_buffer buffer_;
  http::response_parser<http::buffer_body> parser_;
  std::string text_;
  /// Where the first line in it begins that was not taken yet.
  std::size_t begin_ = 0;
};

EventLines::EventLines(const std::string& socketPath, const std::string& target)
    : stream_(std::make_unique<Stream>(socketPath, target)) {}
EventLines::~EventLines() = default;

std::optional<Json> EventLines::next(int waitMs) {
  return stream_->next(waitMs);
}

bool EventLines::hasEnded() const {
  return stream_->hasEnded();
}

std::string percentEncoded(const std::string& text) {
  constexpr std::string_view plain = "-._~/*";
  std::string encoded;
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (std::isalnum(byte) != 0 || plain.find(character) != std::string_view::npos) {
      encoded += character;
    } else {
      encoded += fmt::format("%{:02X}", byte);
    }
  }
  return encoded;
}

}  // namespace host
