#pragma once

// Sees Boost.Beast: for session.cpp alone.

#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/websocket.hpp>
#include <functional>
#include <string>
#include <utility>

#include "host/server/bounds.h"
#include "host/server/session.h"

namespace host {

/// A WebSocket of text messages on the socket of a session, which must outlive it. What the
/// functions hold that it calls must keep it alive.
class MessageStream {
 public:
  using Error = boost::system::error_code;
  using Done = std::function<void(const Error&)>;
  using Head = boost::beast::http::request<boost::beast::http::string_body>;

  explicit MessageStream(Stream& socket) : stream_(socket) {}

  void accept(const Head& head, const Done& done) {
    namespace websocket = boost::beast::websocket;
    namespace http = boost::beast::http;
    stream_.read_message_max(bounds::messageBytes);
    websocket::stream_base::timeout timeout{bounds::requestTime, bounds::idleTime, true};
    stream_.set_option(timeout);
    if (!head[http::field::sec_websocket_protocol].empty()) {
      stream_.set_option(websocket::stream_base::decorator([](websocket::response_type& answer) {
        answer.set(http::field::sec_websocket_protocol, "torvex");
      }));
    }
    stream_.text(true);
    stream_.async_accept(head, done);
  }

  [[nodiscard]] bool isOpen() const { return stream_.is_open(); }

  void read(const std::function<void(const Error&, const std::string&)>& done) {
    buffer_.clear();
    stream_.async_read(buffer_, [this, done](const Error& error, std::size_t) {
      done(error, error ? "" : boost::beast::buffers_to_string(buffer_.data()));
    });
  }

  void write(std::string message, const Done& done) {
    message_ = std::move(message);
    stream_.async_write(boost::asio::buffer(message_),
                        [done](const Error& error, std::size_t) { done(error); });
  }

  void close(const Done& done) {
    stream_.async_close(boost::beast::websocket::close_code::going_away, done);
  }

 private:
  boost::beast::websocket::stream<Stream&> stream_;
  boost::beast::flat_buffer buffer_;
  std::string message_;
};

}  // namespace host
