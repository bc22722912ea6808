#pragma once

#include <chrono>
#include <cstddef>

/// What a client may ask of the door; docs/api.md tells them.
namespace host::bounds {

constexpr std::size_t headBytes = std::size_t{8} * 1024;
constexpr std::size_t bodyBytes = std::size_t{1} << 20;
constexpr std::size_t messageBytes = std::size_t{4} * 1024;
constexpr std::size_t connections = 128;
/// Connections beyond these, of which the latest may still ask for what is urgent.
constexpr std::size_t urgentConnections = 16;
/// Requests that wait for the machine.
constexpr std::size_t requests = 64;
/// Keys and patterns that one request may name.
constexpr std::size_t keys = 64;
/// For a request to arrive, and to be answered.
constexpr std::chrono::milliseconds requestTime{10'000};
/// Between two requests, and for a listener to take something.
constexpr std::chrono::milliseconds idleTime{60'000};
/// Of a listener's text that is written at once.
constexpr std::size_t linesBytes = std::size_t{64} * 1024;

}  // namespace host::bounds
