#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/server/http.h"

namespace host {

/// Who may come in by TCP; the socket's permissions say it for those who come by the socket.
struct Access {
  /// What `Host` may be.
  std::vector<std::string> hosts;
  /// What `Origin` may be, where there is one.
  std::vector<std::string> origins;
  std::string token;
  /// What a browser shows in place of the token: NAME=VALUE.
  std::string cookie;
};

/// What the head of a request says of who sent it; empty where it says nothing.
struct Credentials {
  bool isBySocket = false;
  /// Does no more than read, and opens no WebSocket.
  bool isRead = false;
  std::string host;
  std::string origin;
  std::string authorization;
  /// The subprotocols of a WebSocket.
  std::string protocols;
  std::string cookies;
};

/// A token among these subprotocols stands behind this.
constexpr char tokenProtocol[] = "torvex.token.";

/// Whether both are the same, in a time that does not tell how much of them is.
bool isSameSecret(const std::string& secret, const std::string& given);

/// Why it may not come in; none where it may. Takes equally long for every token of a length.
std::optional<Answer> refusedEntry(const Access& access, const Credentials& credentials,
                                   bool isOpenToAll);

/// 64 hexadecimal digits that nobody can foresee.
std::string randomToken();

}  // namespace host
