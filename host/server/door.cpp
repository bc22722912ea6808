#include "host/server/door.h"

#include <fmt/format.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <deque>
#include <exception>
#include <thread>
#include <utility>
#include <vector>

#include "host/server/bounds.h"
#include "host/server/session.h"
#include "simulation/machine.h"

namespace host {
namespace {

namespace net = boost::asio;
using Error = boost::system::error_code;

constexpr std::chrono::milliseconds feedInterval{5};
constexpr std::chrono::milliseconds restInterval{50};

}  // namespace

class Door::Core {
 public:
  Core(int listeningSocket, const std::optional<TcpAddress>& tcp, Access access, Handler& handler)
      : owned_(std::make_shared<DoorState>(std::move(access), handler)),
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
    Error isNone;
    const net::ip::address address = net::ip::make_address(tcp.address, isNone);
    if (isNone) {
      throw simulation::Error(
          fmt::format("cannot listen at {}:{}: '{}' is no IP address, such as 127.0.0.1",
                      tcp.address, tcp.port, tcp.address));
    }
    try {
      const net::ip::tcp::endpoint endpoint(address, tcp.port);
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
    const auto session = makeSession(shared_, std::move(socket), number, isBySocket);
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
  const std::shared_ptr<DoorState> owned_;
  DoorState& shared_;
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
