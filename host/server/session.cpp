// The one unit of the server that sees Boost.Beast: it takes long to compile.

#include "host/server/session.h"

#include <fmt/format.h>

#include <boost/asio/write.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "host/base/clocks.h"
#include "host/server/bounds.h"
#include "host/server/chunkedlines.h"
#include "host/server/deadline.h"
#include "host/server/messagestream.h"
#include "host/server/refused.h"
#include "host/server/target.h"
#include "host/server/turn.h"

namespace host {
namespace {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using Error = boost::system::error_code;

std::string text(beast::string_view view) {
  return {view.data(), view.size()};
}

/// One connection.
class HttpSession : public Session, public std::enable_shared_from_this<HttpSession> {
 public:
  HttpSession(DoorState& shared, Stream socket, std::uint64_t number, bool isBySocket)
      : shared_(shared),
        socket_(std::move(socket)),
        deadline_(shared.io),
        number_(number),
        isBySocket_(isBySocket),
        isKnown_(isBySocket),
        turn_(shared) {}

  [[nodiscard]] bool isBySocket() const override { return isBySocket_; }

  void crowd() override { isCrowded_ = true; }

  void awaitRequest() override {
    if (buffer_.size() > 0) {
      readHead();
      return;
    }
    if (shared_.isClosing) {
      end();
      return;
    }
    isIdle_ = true;
    arm(isKnown_ ? bounds::idleTime : bounds::strangerTime, &HttpSession::end);
    socket_.async_wait(Stream::wait_read, [self = shared_from_this()](const Error& error) {
      error ? self->end() : self->readHead();
    });
  }

  void pump() override {
    if (feed_ == nullptr || isWriting_ || hasEnded_) {
      return;
    }
    messages_ ? sendMessage() : sendLines();
  }

  [[nodiscard]] bool isFed() const override { return feed_ != nullptr; }

  void end() override {
    if (std::exchange(hasEnded_, true)) {
      return;
    }
    Error ignored;
    deadline_.cancel();
    socket_.close(ignored);
    turn_.leave();
    shared_.handler.connectionEnded(number_);
    shared_.sessions.erase(number_);
    if (shared_.isClosing && shared_.sessions.empty()) {
      shared_.io.stop();
    }
  }

  void conclude() override {
    if (isFed()) {
      pump();
    } else if (isIdle_) {
      end();
    }
  }

 private:
  void arm(std::chrono::milliseconds time, void (HttpSession::*late)()) {
    deadline_.set(time, [self = shared_from_this(), late] { (self.get()->*late)(); });
  }

  void readHead() {
    isIdle_ = false;
    isLate_ = false;
    isHead_ = false;
    parser_.emplace();
    parser_->header_limit(static_cast<std::uint32_t>(bounds::headBytes));
    parser_->body_limit(bounds::bodyBytes);
    arm(isKnown_ ? bounds::requestTime : bounds::strangerTime, &HttpSession::giveUpReading);
    http::async_read_header(socket_, buffer_, *parser_,
                            [self = shared_from_this()](const Error& error, std::size_t) {
                              const bool isWhole = !error && !self->isLate_;
                              isWhole ? self->judgeHead() : self->refuseReading(error);
                            });
  }

  void giveUpReading() {
    isLate_ = true;
    Error ignored;
    socket_.cancel(ignored);
  }

  /// What came is no request, or too much of one.
  void refuseReading(const Error& error) {
    closesAfterwards_ = true;
    if (isLate_) {
      answer(refusal(408, "timeout", "the request did not arrive in time"));
    } else if (error == http::error::header_limit || error == http::error::buffer_overflow) {
      answer(refusal(431, "header", fmt::format("more than {} bytes", bounds::headBytes)));
    } else if (error == http::error::body_limit) {
      Answer refused = refusal(413, "too_large",
                               fmt::format("the body has more than {} bytes", bounds::bodyBytes));
      answer(std::move(refused));
    } else if (error == http::error::end_of_stream || error.category() != parseErrors()) {
      end();
    } else {
      answer(refusal(400, "invalid", "not an HTTP/1.1 request: " + error.message()));
    }
  }

  static const boost::system::error_category& parseErrors() {
    return http::make_error_code(http::error::bad_method).category();
  }

  [[nodiscard]] std::string field(http::field name) const { return text(parser_->get()[name]); }

  [[nodiscard]] Credentials credentials() const {
    Credentials shown;
    shown.isBySocket = isBySocket_;
    shown.isRead = !request_.isUpgrade && (request_.method == "GET" || isHead_);
    shown.host = field(http::field::host);
    shown.origin = field(http::field::origin);
    shown.authorization = field(http::field::authorization);
    shown.protocols = field(http::field::sec_websocket_protocol);
    shown.cookies = field(http::field::cookie);
    return shown;
  }

  void judgeHead() {
    const auto& head = parser_->get();
    request_ = Request();
    request_.receivedNs = bootNs();
    request_.method = text(head.method_string());
    isHead_ = head.method() == http::verb::head;
    request_.connection = number_;
    request_.contentType = field(http::field::content_type);
    request_.isUpgrade = beast::websocket::is_upgrade(head);
    keepsAlive_ = head.keep_alive();
    if (!readTarget(text(head.target()), request_)) {
      turnAway(refusal(400, "invalid", "the target is not a path with a query"));
      return;
    }
    const Credentials shown = credentials();
    request_.isKnown = !refusedEntry(shared_.access, shown, false);
    if (!isKnown_ && request_.isKnown) {
      isKnown_ = true;
      arm(bounds::requestTime, &HttpSession::giveUpReading);
    }
    request_.host = isBySocket_ ? "" : shown.host;
    const bool isOpen = shared_.handler.isOpenToAll(request_);
    if (auto refused = refusedEntry(shared_.access, shown, isOpen)) {
      turnAway(std::move(*refused));
    } else if (beast::iequals(head[http::field::expect], "100-continue")) {
      askForBody();
    } else {
      readBody();
    }
  }

  /// Before its body was read, which may never come.
  void turnAway(Answer refused) {
    closesAfterwards_ = true;
    answer(std::move(refused));
  }

  void askForBody() {
    static const std::string goOn = "HTTP/1.1 100 Continue\r\n\r\n";
    net::async_write(socket_, net::buffer(goOn),
                     [self = shared_from_this()](const Error& error, std::size_t) {
                       error ? self->end() : self->readBody();
                     });
  }

  void readBody() {
    http::async_read(socket_, buffer_, *parser_,
                     [self = shared_from_this()](const Error& error, std::size_t) {
                       const bool isWhole = !error && !self->isLate_;
                       isWhole ? self->handle() : self->refuseReading(error);
                     });
  }

  void handle() {
    request_.body = std::move(parser_->get().body());
    const bool isUrgent = shared_.handler.isUrgent(request_);
    if (isCrowded_ && !isUrgent) {
      turnAway(refusal(503, "busy", "too many connections"));
      return;
    }
    feed_ = shared_.handler.feedFor(request_);
    if (feed_ != nullptr) {
      request_.isUpgrade ? acceptWebSocket() : beginLines();
      return;
    }
    if (!turn_.take(isUrgent)) {
      answer(refusal(503, "busy", "too many requests wait for the machine"));
      return;
    }
    arm(bounds::requestTime, &HttpSession::giveUpWaiting);
    const auto send = [self = weak_from_this(), number = answers_](Answer made) {
      if (const auto session = self.lock(); session != nullptr && session->answers_ == number) {
        session->answer(std::move(made));
      }
    };
    shared_.handler.handle(std::move(request_), turn_.reply(send));
  }

  void giveUpWaiting() {
    answer(turn_.giveUp()
               ? refusal(408, "timeout",
                         "the request waited too long for its turn; it is not executed")
               : refusal(504, "timeout",
                         "the machine did not answer in time; it may still execute the request"));
  }

  void answer(Answer answer) {
    if (hasEnded_) {
      return;
    }
    ++answers_;
    turn_.leave();
    response_ = {};
    response_.version(11);
    response_.result(answer.status);
    for (const auto& [name, value] : headFields(answer)) {
      response_.set(name, value);
    }
    response_.keep_alive(keepsAlive_ && !closesAfterwards_);
    response_.body() = std::move(answer.body);
    response_.prepare_payload();
    if (isHead_) {
      response_.body().clear();
    }
    arm(bounds::requestTime, &HttpSession::end);
    http::async_write(
        socket_, response_, [self = shared_from_this()](const Error& error, std::size_t) {
          error || !self->response_.keep_alive() ? self->finish() : self->awaitRequest();
        });
  }

  /// Lets the client read the answer, though it may still be sending.
  void finish() {
    Error error;
    socket_.shutdown(Stream::shutdown_send, error);
    arm(std::chrono::milliseconds(500), &HttpSession::end);
    drain();
  }
  void drain() {
    buffer_.clear();
    socket_.async_read_some(buffer_.prepare(4096),
                            [self = shared_from_this()](const Error& error, std::size_t) {
                              error ? self->end() : self->drain();
                            });
  }

  void acceptWebSocket() {
    messages_.emplace(socket_);
    deadline_.cancel();
    messages_->accept(parser_->get(), [self = shared_from_this()](const Error& error) {
      if (error) {
        self->end();
        return;
      }
      self->readMessages();
      self->pump();
    });
  }

  void readMessages() {
    messages_->read([self = shared_from_this()](const Error& error, const std::string& message) {
      if (error || self->hasEnded_) {
        self->end();
        return;
      }
      self->feed_->take(message);
      self->readMessages();
    });
  }

  void sendMessage() {
    if (!messages_->isOpen()) {
      return;
    }
    std::string message = feed_->next();
    if (!message.empty()) {
      isWriting_ = true;
      messages_->write(std::move(message), [self = shared_from_this()](const Error& error) {
        self->isWriting_ = false;
        error ? self->end() : self->pump();
      });
    } else if (shared_.isClosing) {
      isWriting_ = true;
      messages_->close([self = shared_from_this()](const Error&) { self->end(); });
    }
  }

  void beginLines() {
    write(linesHead());
    // Whatever else a listener sends, and its end, ends it.
    socket_.async_wait(Stream::wait_read,
                       [self = shared_from_this()](const Error&) { self->end(); });
  }

  void sendLines() {
    std::string lines = nextLines(*feed_);
    if (!lines.empty()) {
      write(std::move(lines));
    } else if (shared_.isClosing) {
      isWriting_ = true;
      lines_ = linesEnd();
      net::async_write(socket_, net::buffer(lines_),
                       [self = shared_from_this()](const Error&, std::size_t) { self->end(); });
    }
  }

  void write(std::string lines) {
    isWriting_ = true;
    lines_ = std::move(lines);
    arm(bounds::idleTime, &HttpSession::end);
    net::async_write(socket_, net::buffer(lines_),
                     [self = shared_from_this()](const Error& error, std::size_t) {
                       self->isWriting_ = false;
                       self->deadline_.cancel();
                       error ? self->end() : self->pump();
                     });
  }

  DoorState& shared_;
  Stream socket_;
  Deadline deadline_;
  const std::uint64_t number_;
  const bool isBySocket_;
  /// Came by the socket, or has shown the token.
  bool isKnown_;
  beast::flat_buffer buffer_{bounds::headBytes + bounds::bodyBytes};
  std::optional<http::request_parser<http::string_body>> parser_;
  Request request_;
  http::response<http::string_body> response_;
  std::optional<MessageStream> messages_;
  std::unique_ptr<Feed> feed_;
  Turn turn_;
  std::string lines_;
  /// Counts the answers, so that one which comes too late is known.
  std::uint64_t answers_ = 0;
  bool keepsAlive_ = false;
  bool closesAfterwards_ = false;
  bool isIdle_ = false;
  bool isLate_ = false;
  bool isHead_ = false;
  bool isCrowded_ = false;
  bool isWriting_ = false;
  bool hasEnded_ = false;
};

}  // namespace

std::shared_ptr<Session> makeSession(DoorState& door, Stream socket, std::uint64_t number,
                                     bool isBySocket) {
  return std::make_shared<HttpSession>(door, std::move(socket), number, isBySocket);
}

}  // namespace host
