// The one unit that sees Boost.Beast: it takes long to compile.

#include "host/server/door.h"

#include <fmt/format.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <boost/asio.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>
#include <deque>
#include <exception>
#include <map>
#include <thread>
#include <utility>

#include "host/server/bounds.h"
#include "host/server/target.h"
#include "simulation/machine.h"

namespace host {
namespace {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using Error = boost::system::error_code;
/// Of both kinds, so that all is compiled once.
using Stream = net::generic::stream_protocol::socket;

constexpr std::chrono::milliseconds feedInterval{5};
constexpr std::chrono::milliseconds restInterval{50};

std::string text(beast::string_view view) {
  return {view.data(), view.size()};
}

class Session;

/// What all sessions of a door share.
struct Shared : std::enable_shared_from_this<Shared> {
  net::io_context io{1};
  Access access;
  Handler& handler;
  std::map<std::uint64_t, std::shared_ptr<Session>> sessions;
  std::size_t waitingRequests = 0;
  /// The door closes when no session is left.
  bool isClosing = false;

  Shared(Access access_, Handler& handler_) : access(std::move(access_)), handler(handler_) {}
};

/// One connection.
class Session : public std::enable_shared_from_this<Session> {
 public:
  Session(Shared& shared, Stream socket, std::uint64_t number, bool isBySocket)
      : shared_(shared),
        socket_(std::move(socket)),
        deadline_(shared.io),
        number_(number),
        isBySocket_(isBySocket),
        isKnown_(isBySocket) {}

  [[nodiscard]] bool isBySocket() const { return isBySocket_; }

  /// Beyond the bound of connections: only what is urgent.
  void crowd() { isCrowded_ = true; }

  void awaitRequest() {
    if (buffer_.size() > 0) {
      readHead();
      return;
    }
    if (shared_.isClosing) {
      end();
      return;
    }
    isIdle_ = true;
    arm(isKnown_ ? bounds::idleTime : bounds::strangerTime, &Session::end);
    socket_.async_wait(Stream::wait_read, [self = shared_from_this()](const Error& error) {
      error ? self->end() : self->readHead();
    });
  }

  /// Sends what the feed has, unless something is on its way.
  void pump() {
    if (feed_ == nullptr || isWriting_ || hasEnded_) {
      return;
    }
    webSocket_ ? sendMessage() : sendLines();
  }

  [[nodiscard]] bool isFed() const { return feed_ != nullptr; }

  void end() {
    if (std::exchange(hasEnded_, true)) {
      return;
    }
    Error ignored;
    disarm();
    socket_.close(ignored);
    leaveQueue();
    shared_.handler.connectionEnded(number_);
    shared_.sessions.erase(number_);
    if (shared_.isClosing && shared_.sessions.empty()) {
      shared_.io.stop();
    }
  }

  /// The door closes: a listener hears the rest, and that it is the last.
  void conclude() {
    if (isFed()) {
      pump();
    } else if (isIdle_) {
      end();
    }
  }

 private:
  using Step = void (Session::*)();

  void arm(std::chrono::milliseconds time, Step late) {
    disarm();
    deadline_.expires_after(time);
    deadline_.async_wait([self = shared_from_this(), late, number = deadlineNumber_](const Error&) {
      // A timer that has fired already cannot be cancelled.
      if (number == self->deadlineNumber_ && !self->hasEnded_) {
        (self.get()->*late)();
      }
    });
  }

  void disarm() {
    ++deadlineNumber_;
    deadline_.cancel();
  }

  void readHead() {
    isIdle_ = false;
    isLate_ = false;
    isHead_ = false;
    parser_.emplace();
    parser_->header_limit(static_cast<std::uint32_t>(bounds::headBytes));
    parser_->body_limit(bounds::bodyBytes);
    arm(isKnown_ ? bounds::requestTime : bounds::strangerTime, &Session::giveUpReading);
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
      answer(refusal(400, "invalid", "no HTTP/1.1 request: " + error.message()));
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
    request_.method = text(head.method_string());
    isHead_ = head.method() == http::verb::head;
    request_.connection = number_;
    request_.contentType = field(http::field::content_type);
    request_.isUpgrade = websocket::is_upgrade(head);
    keepsAlive_ = head.keep_alive();
    if (!readTarget(text(head.target()), request_)) {
      turnAway(refusal(400, "invalid", "the target is no path with a query"));
      return;
    }
    const Credentials shown = credentials();
    request_.isKnown = !refusedEntry(shared_.access, shown, false);
    if (!isKnown_ && request_.isKnown) {
      isKnown_ = true;
      arm(bounds::requestTime, &Session::giveUpReading);
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
    if (!isUrgent && shared_.waitingRequests == bounds::requests) {
      answer(refusal(503, "busy", "too many requests wait for the machine"));
      return;
    }
    isInQueue_ = !isUrgent;
    shared_.waitingRequests += isInQueue_ ? 1 : 0;
    arm(bounds::requestTime, &Session::giveUpWaiting);
    const auto send = [self = weak_from_this(), door = shared_.weak_from_this(),
                       turn = turn_](std::function<Answer()> make) {
      const auto shared = door.lock();
      if (shared == nullptr) {
        return;
      }
      net::post(shared->io, [self, turn, make = std::move(make)] {
        Answer made = make();
        if (const auto session = self.lock(); session != nullptr && session->turn_ == turn) {
          session->answer(std::move(made));
        }
      });
    };
    stage_ = std::make_shared<std::atomic<Stage>>(Stage::begun);
    shared_.handler.handle(std::move(request_), Handler::Reply(send, stage_));
  }

  void giveUpWaiting() {
    Stage stage = Stage::waits;
    if (stage_->compare_exchange_strong(stage, Stage::givenUp)) {
      answer(refusal(408, "timeout", "its turn did not come in time; it is not done"));
    } else {
      answer(refusal(504, "timeout", "the machine did not answer in time; it may still do it"));
    }
  }

  void leaveQueue() { shared_.waitingRequests -= std::exchange(isInQueue_, false) ? 1 : 0; }

  void answer(Answer answer) {
    if (hasEnded_) {
      return;
    }
    ++turn_;
    leaveQueue();
    response_ = {};
    response_.version(11);
    response_.result(answer.status);
    response_.set(http::field::content_type, answer.contentType);
    response_.set(http::field::cache_control, "no-store");
    // Nothing that is answered may act in a browser, save where the answer itself says so.
    response_.set("Content-Security-Policy", "default-src 'none'; frame-ancestors 'none'; sandbox");
    response_.set("Cross-Origin-Resource-Policy", "same-origin");
    response_.set("Referrer-Policy", "no-referrer");
    response_.set("X-Content-Type-Options", "nosniff");
    for (const auto& [name, value] : answer.fields) {
      response_.set(name, value);
    }
    response_.keep_alive(keepsAlive_ && !closesAfterwards_);
    response_.body() = std::move(answer.body);
    response_.prepare_payload();
    if (isHead_) {
      response_.body().clear();
    }
    arm(bounds::requestTime, &Session::end);
    http::async_write(
        socket_, response_, [self = shared_from_this()](const Error& error, std::size_t) {
          error || !self->response_.keep_alive() ? self->finish() : self->awaitRequest();
        });
  }

  /// Lets the client read the answer, though it may still be sending.
  void finish() {
    Error error;
    socket_.shutdown(Stream::shutdown_send, error);
    arm(std::chrono::milliseconds(500), &Session::end);
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
    webSocket_.emplace(socket_);
    webSocket_->read_message_max(bounds::messageBytes);
    websocket::stream_base::timeout timeout{bounds::requestTime, bounds::idleTime, true};
    webSocket_->set_option(timeout);
    if (!parser_->get()[http::field::sec_websocket_protocol].empty()) {
      webSocket_->set_option(websocket::stream_base::decorator([](websocket::response_type& head) {
        head.set(http::field::sec_websocket_protocol, "torvex");
      }));
    }
    webSocket_->text(true);
    disarm();
    webSocket_->async_accept(parser_->get(), [self = shared_from_this()](const Error& error) {
      if (error) {
        self->end();
        return;
      }
      self->readMessages();
      self->pump();
    });
  }

  void readMessages() {
    buffer_.clear();
    webSocket_->async_read(buffer_, [self = shared_from_this()](const Error& error, std::size_t) {
      if (error || self->hasEnded_) {
        self->end();
        return;
      }
      self->feed_->take(beast::buffers_to_string(self->buffer_.data()));
      self->readMessages();
    });
  }

  void sendMessage() {
    if (!webSocket_->is_open()) {
      return;
    }
    sent_ = feed_->next();
    if (sent_.empty()) {
      if (shared_.isClosing) {
        isWriting_ = true;
        webSocket_->async_close(websocket::close_code::going_away,
                                [self = shared_from_this()](const Error&) { self->end(); });
      }
      return;
    }
    isWriting_ = true;
    webSocket_->async_write(net::buffer(sent_),
                            [self = shared_from_this()](const Error& error, std::size_t) {
                              self->isWriting_ = false;
                              error ? self->end() : self->pump();
                            });
  }

  void beginLines() {
    sent_ =
        "HTTP/1.1 200 OK\r\nContent-Type: application/x-ndjson\r\nCache-Control: no-store\r\n"
        "X-Content-Type-Options: nosniff\r\nTransfer-Encoding: chunked\r\n\r\n";
    write();
    // Whatever else a listener sends, and its end, ends it.
    socket_.async_wait(Stream::wait_read,
                       [self = shared_from_this()](const Error&) { self->end(); });
  }

  void sendLines() {
    std::string lines;
    for (std::string line = feed_->next(); !line.empty(); line = feed_->next()) {
      lines += line + "\n";
      if (lines.size() >= bounds::linesBytes) {
        break;
      }
    }
    if (!lines.empty()) {
      sent_ = fmt::format("{:x}\r\n{}\r\n", lines.size(), lines);
      write();
    } else if (shared_.isClosing) {
      isWriting_ = true;
      sent_ = "0\r\n\r\n";
      net::async_write(socket_, net::buffer(sent_),
                       [self = shared_from_this()](const Error&, std::size_t) { self->end(); });
    }
  }

  void write() {
    isWriting_ = true;
    arm(bounds::idleTime, &Session::end);
    net::async_write(socket_, net::buffer(sent_),
                     [self = shared_from_this()](const Error& error, std::size_t) {
                       self->isWriting_ = false;
                       self->disarm();
                       error ? self->end() : self->pump();
                     });
  }

  Shared& shared_;
  Stream socket_;
  net::steady_timer deadline_;
  const std::uint64_t number_;
  const bool isBySocket_;
  /// Came by the socket, or has shown the token.
  bool isKnown_;
  beast::flat_buffer buffer_{bounds::headBytes + bounds::bodyBytes};
  std::optional<http::request_parser<http::string_body>> parser_;
  Request request_;
  http::response<http::string_body> response_;
  std::optional<websocket::stream<Stream&>> webSocket_;
  std::unique_ptr<Feed> feed_;
  /// Of the request under way.
  std::shared_ptr<std::atomic<Stage>> stage_;
  std::string sent_;
  /// Counts the answers, so that one which comes too late is known.
  std::uint64_t turn_ = 0;
  /// Counts what was to happen when something comes too late; the latest one counts.
  std::uint64_t deadlineNumber_ = 0;
  bool keepsAlive_ = false;
  bool closesAfterwards_ = false;
  bool isIdle_ = false;
  bool isLate_ = false;
  bool isHead_ = false;
  bool isCrowded_ = false;
  bool isInQueue_ = false;
  bool isWriting_ = false;
  bool hasEnded_ = false;
};

}  // namespace

class Door::Core {
 public:
  Core(int listeningSocket, const std::optional<TcpAddress>& tcp, Access access, Handler& handler)
      : owned_(std::make_shared<Shared>(std::move(access), handler)),
        shared_(*owned_),
        socket_(shared_.io),
        tcp_(shared_.io),
        pause_(shared_.io),
        feeding_(shared_.io) {
    socket_.assign(net::local::stream_protocol(), listeningSocket);
    if (tcp) {
      listen(*tcp);
    }
  }

  ~Core() {
    if (thread_.joinable()) {
      net::post(shared_.io, [this] { close(); });
      thread_.join();
    }
    shared_.sessions.clear();
  }

  Core(const Core&) = delete;
  Core& operator=(const Core&) = delete;

  void open(std::function<void(std::uint64_t)> haveRead) {
    haveRead_ = std::move(haveRead);
    accept(socket_, true);
    if (tcp_.is_open()) {
      accept(tcp_, false);
    }
    feed();
    thread_ = std::thread([this] { run(); });
  }

  void askToRead(std::uint64_t number) {
    asked_ = number;
    net::post(shared_.io, [] {});
  }

 private:
  void close() {
    shared_.isClosing = true;
    Error ignored;
    socket_.close(ignored);
    tcp_.close(ignored);
    pause_.cancel();
    feeding_.expires_after(bounds::closingTime);
    feeding_.async_wait([this](const Error&) { shared_.io.stop(); });
    if (shared_.sessions.empty()) {
      shared_.io.stop();
    }
    eachSession([](Session& session) { session.conclude(); });
  }

  /// One that throws ends alone.
  template <typename Do>
  void eachSession(const Do& act) {
    std::vector<std::shared_ptr<Session>> sessions;
    for (const auto& [number, session] : shared_.sessions) {
      sessions.push_back(session);
    }
    for (const auto& session : sessions) {
      try {
        act(*session);
      } catch (const std::exception&) {
        session->end();
      }
    }
  }

  void listen(const TcpAddress& tcp) {
    try {
      const net::ip::tcp::endpoint endpoint(net::ip::make_address(tcp.address), tcp.port);
      tcp_.open(endpoint.protocol());
      tcp_.set_option(net::socket_base::reuse_address(true));
      tcp_.bind(endpoint);
      tcp_.listen();
    } catch (const boost::system::system_error& error) {
      throw simulation::Error(
          fmt::format("cannot listen at {}:{}: {}", tcp.address, tcp.port, error.code().message()));
    }
  }

  /// A handler that throws is a fault of that request alone.
  void run() {
    pthread_setname_np(pthread_self(), "door");
    while (!shared_.io.stopped()) {
      try {
        const std::uint64_t asked = asked_;
        // What was ready by then has been handled when nothing more is.
        while (shared_.io.poll() > 0) {
        }
        if (asked != told_) {
          told_ = asked;
          haveRead_(asked);
        }
        shared_.io.run_one();
      } catch (const std::exception&) {
        continue;
      }
    }
  }

  template <typename Acceptor>
  void accept(Acceptor& acceptor, bool isBySocket) {
    acceptor.async_accept([this, &acceptor, isBySocket](const Error& error, auto socket) {
      if (error == net::error::operation_aborted) {
        return;
      }
      if (error) {
        // Too few descriptors, say: those that are open may end.
        pause_.expires_after(std::chrono::milliseconds(100));
        pause_.async_wait([this, &acceptor, isBySocket](const Error&) {
          if (acceptor.is_open()) {
            accept(acceptor, isBySocket);
          }
        });
        return;
      }
      // First, since what follows may throw.
      accept(acceptor, isBySocket);
      admit(Stream(std::move(socket)), isBySocket);
    });
  }

  void admit(Stream socket, bool isBySocket) {
    if (!isBySocket) {
      Error ignored;
      socket.set_option(net::ip::tcp::no_delay(true), ignored);
    }
    const std::uint64_t number = ++count_;
    const auto session = std::make_shared<Session>(shared_, std::move(socket), number, isBySocket);
    const auto ofKind = std::count_if(
        shared_.sessions.begin(), shared_.sessions.end(),
        [isBySocket](const auto& each) { return each.second->isBySocket() == isBySocket; });
    if (static_cast<std::size_t>(ofKind) >= bounds::connections) {
      session->crowd();
      auto& crowded = isBySocket ? crowdedBySocket_ : crowdedByTcp_;
      crowded.push_back(session);
      if (crowded.size() > bounds::urgentConnections) {
        if (const auto oldest = crowded.front().lock()) {
          oldest->end();
        }
        crowded.pop_front();
      }
    }
    shared_.sessions.emplace(number, session);
    session->awaitRequest();
  }

  void feed() {
    const bool isListenedTo = std::any_of(shared_.sessions.begin(), shared_.sessions.end(),
                                          [](const auto& each) { return each.second->isFed(); });
    feeding_.expires_after(isListenedTo ? feedInterval : restInterval);
    feeding_.async_wait([this](const Error& error) {
      if (error || shared_.isClosing) {
        return;
      }
      feed();
      eachSession([](Session& session) { session.pump(); });
    });
  }

  /// Also of replies that come late, from other threads.
  const std::shared_ptr<Shared> owned_;
  Shared& shared_;
  net::local::stream_protocol::acceptor socket_;
  net::ip::tcp::acceptor tcp_;
  net::steady_timer pause_;
  net::steady_timer feeding_;
  std::deque<std::weak_ptr<Session>> crowdedBySocket_;
  std::deque<std::weak_ptr<Session>> crowdedByTcp_;
  std::uint64_t count_ = 0;
  std::atomic<std::uint64_t> asked_{0};
  std::uint64_t told_ = 0;
  std::function<void(std::uint64_t)> haveRead_;
  std::thread thread_;
};

Door::Door(int listeningSocket, const std::optional<TcpAddress>& tcp, Access access,
           Handler& handler)
    : core_(std::make_unique<Core>(listeningSocket, tcp, std::move(access), handler)) {}

Door::~Door() = default;

void Door::open(const std::function<void(std::uint64_t)>& haveRead) {
  core_->open(haveRead);
}

void Door::askToRead(std::uint64_t number) {
  core_->askToRead(number);
}

}  // namespace host
