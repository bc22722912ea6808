#pragma once

#include <chrono>
#include <cstddef>

/// What a client may ask of the door; docs/api.md tells them.
namespace host::bounds {

constexpr std::size_t headBytes = std::size_t{8} * 1024;
constexpr std::size_t bodyBytes = std::size_t{1} << 20;
constexpr std::size_t messageBytes = std::size_t{4} * 1024;
/// By the socket; as many more by TCP.
constexpr std::size_t connections = 64;
/// Connections beyond these, of each kind, of which the latest may still ask for what is urgent.
constexpr std::size_t urgentConnections = 16;
/// Requests that wait for the machine.
constexpr std::size_t requests = 64;
/// Keys and patterns that one request may name.
constexpr std::size_t keys = 64;
/// For a request to arrive, and to be answered.
constexpr std::chrono::milliseconds requestTime{10'000};
/// For the same, and between two requests, while a TCP connection has shown no token.
constexpr std::chrono::milliseconds strangerTime{2'000};
/// Between two requests, and for a listener to take something.
constexpr std::chrono::milliseconds idleTime{60'000};
/// For listeners to take what they are still to hear when the door closes.
constexpr std::chrono::milliseconds closingTime{300};
/// Of a listener's text that is written at once.
constexpr std::size_t linesBytes = std::size_t{64} * 1024;

}  // namespace host::bounds
