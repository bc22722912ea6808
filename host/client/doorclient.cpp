#include "host/client/doorclient.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <cctype>
#include <chrono>
#include <limits>
#include <nlohmann/json.hpp>
#include <utility>

#include "host/base/usererror.h"
#include "host/base/visible.h"
#include "host/client/answer.h"
#include "host/client/patientsocket.h"

namespace host {
namespace {

namespace beast = boost::beast;
namespace http = beast::http;
using boost::system::error_code;

constexpr std::uint64_t mostAnswered = std::uint64_t{64} << 20;

[[noreturn]] void failClosed(const error_code& error, int waitMs) {
  if (error == boost::asio::error::interrupted) {
    throw WaitStopped();
  }
  if (error == boost::asio::error::timed_out) {
    throw DoorClosed(fmt::format("the machine did not answer within {:g} s", waitMs / 1000.0));
  }
  throw DoorClosed("the machine ended before it had answered: " + error.message());
}

/// By TCP the door wants to know who asks, and for whom.
template <typename Body>
void introduce(http::request<Body>& request, const DoorAddress& address) {
  if (!address.socketPath.empty()) {
    request.set(http::field::host, "localhost");
    return;
  }
  request.set(http::field::host, address.text());
  request.set(http::field::authorization, "Bearer " + address.token);
}

/// What a machine sends is JSON; anything else is no machine.
Json parsed(const std::string& text) {
  Json value = parsedJson(text);
  if (!value.is_object()) {
    throw NoMachine("the program that answers there is not a machine: " +
                    visible(text.substr(0, 80)));
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
    text += visible(sentenceOf(status, one)) + "\n";
  }
  return text;
}

}  // namespace

DoorRefusal::DoorRefusal(unsigned status, const Json& error)
    : std::runtime_error(sentencesOf(status, error)),
      status_(status),
      error_(std::make_shared<const Json>(error)),
      isBadInput_(status < 500 && status != 408 && status != 409 && status != 429),
      reason_(textOf(error, "reason")),
      file_(textOf(error, "file")) {}

DoorRefusal DoorRefusal::renamed(
    const std::function<std::string(const std::string& path)>& nameOf) const {
  Json error = *error_;
  const auto rename = [&nameOf](Json& one) {
    if (one.is_object()) {
      one["path"] = nameOf(textOf(one, "path"));
    }
  };
  rename(error);
  if (const auto errors = error.find("errors"); errors != error.end() && errors->is_array()) {
    std::for_each(errors->begin(), errors->end(), rename);
  }
  return {status_, error};
}

class DoorClient::Connection {
 public:
  Connection(const DoorAddress& address, const Patience& patience)
      : address_(address), socket_(address, patience) {}

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
    introduce(request, address_);
    if (!body.empty()) {
      request.set(http::field::content_type, "application/json");
    }
    request.prepare_payload();
    http::response_parser<http::string_body> parser;
    parser.body_limit(mostAnswered);
    socket_.waitAtMost(socket_.waitMs());
    error_code error;
    http::write(socket_, request, error);
    // A refusal may come before all was sent.
    error_code readError;
    http::read(socket_, buffer_, parser, readError);
    if (readError) {
      failClosed(error ? error : readError, socket_.waitMs());
    }
    return {parser.get().result_int(), std::move(parser.get().body())};
  }

  const DoorAddress address_;
  PatientSocket socket_;
  beast::flat_buffer buffer_;
};

DoorClient::DoorClient(const std::string& socketPath) : DoorClient(DoorAddress{socketPath}) {}
DoorClient::DoorClient(const DoorAddress& address, const Patience& patience)
    : connection_(std::make_unique<Connection>(address, patience)) {}
DoorClient::~DoorClient() = default;

Json DoorClient::get(const std::string& target) {
  return connection_->ask(http::verb::get, target, "");
}

std::string DoorClient::getText(const std::string& target) {
  return connection_->askForText(target);
}

Json DoorClient::post(const std::string& target, const Json& body) {
  return postText(target, body.dump(-1, ' ', false, Json::error_handler_t::replace));
}

Json DoorClient::postText(const std::string& target, const std::string& body) {
  return connection_->ask(http::verb::post, target, body);
}

Json DoorClient::remove(const std::string& target) {
  return connection_->ask(http::verb::delete_, target, "");
}

class EventLines::Stream {
 public:
  Stream(const DoorAddress& address, const std::string& target, const Patience& patience)
      : socket_(address, patience) {
    http::request<http::empty_body> request(http::verb::get, target, 11);
    introduce(request, address);
    parser_.body_limit(std::numeric_limits<std::uint64_t>::max());
    socket_.waitAtMost(socket_.waitMs());
    error_code error;
    http::write(socket_, request, error);
    if (!error) {
      http::read_header(socket_, buffer_, parser_, error);
    }
    if (error) {
      failClosed(error, socket_.waitMs());
    }
    if (parser_.get().result() != http::status::ok) {
      readAll();
    }
  }

  std::optional<Json> next(int waitMs) {
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(waitMs);
    while (true) {
      if (const std::size_t end = text_.find('\n', searched_); end != std::string::npos) {
        const std::string line = text_.substr(begin_, end - begin_);
        begin_ = end + 1;
        searched_ = begin_;
        return parsed(line);
      }
      text_.erase(0, std::exchange(begin_, 0));
      searched_ = text_.size();
      if (searched_ > mostAnswered) {
        throw DoorClosed("the machine tells an event that has no end");
      }
      const auto left = until - std::chrono::steady_clock::now();
      const auto leftMs = std::max<std::int64_t>(left / std::chrono::milliseconds(1), 0);
      if (parser_.is_done() || !readSome(static_cast<int>(leftMs))) {
        return std::nullopt;
      }
    }
  }

  [[nodiscard]] bool hasEnded() const {
    return parser_.is_done() && text_.find('\n', searched_) == std::string::npos;
  }

 private:
  /// The machine refuses.
  [[noreturn]] void readAll() {
    while (!parser_.is_done() && text_.size() < mostAnswered && readSome(socket_.waitMs())) {
    }
    answerOf(parser_.get().result_int(), text_);
    throw DoorClosed("the machine gave an unexpected answer");
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
  /// Up to where it holds no line's end.
  std::size_t searched_ = 0;
};

EventLines::EventLines(const std::string& socketPath, const std::string& target)
    : EventLines(DoorAddress{socketPath}, target) {}
EventLines::EventLines(const DoorAddress& address, const std::string& target,
                       const Patience& patience)
    : stream_(std::make_unique<Stream>(address, target, patience)) {}
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
