#include "host/server/access.h"

#include <fmt/format.h>
#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

#include "host/server/refused.h"

namespace host {
namespace {

bool isOneOf(const std::vector<std::string>& known, const std::string& given) {
  return std::find(known.begin(), known.end(), given) != known.end();
}

/// What stands behind `prefix`, up to a comma; empty when it does not occur.
std::string behind(const std::string& text, const std::string& prefix) {
  const std::size_t found = text.find(prefix);
  if (found == std::string::npos) {
    return "";
  }
  const std::size_t begin = found + prefix.size();
  return text.substr(begin, text.find_first_of(", ", begin) - begin);
}

bool showsCookie(const Access& access, const std::string& cookies) {
  for (std::size_t begin = 0; begin < cookies.size();) {
    begin = std::min(cookies.find_first_not_of("; ", begin), cookies.size());
    const std::size_t end = std::min(cookies.find(';', begin), cookies.size());
    if (!access.cookie.empty() && isSameSecret(access.cookie, cookies.substr(begin, end - begin))) {
      return true;
    }
    begin = end;
  }
  return false;
}

}  // namespace

bool isSameSecret(const std::string& secret, const std::string& given) {
  if (given.size() != secret.size()) {
    return false;
  }
  unsigned difference = 0;
  for (std::size_t i = 0; i < secret.size(); ++i) {
    difference |= static_cast<unsigned char>(secret[i] ^ given[i]);
  }
  return difference == 0;
}

std::optional<Answer> refusedEntry(const Access& access, const Credentials& credentials,
                                   bool isOpenToAll) {
  if (!credentials.origin.empty() && !isOneOf(access.origins, credentials.origin)) {
    return refusal(403, "forbidden", "pages of this origin are not allowed; see --origin");
  }
  if (credentials.isBySocket) {
    return std::nullopt;
  }
  if (!isOneOf(access.hosts, credentials.host)) {
    return refusal(403, "forbidden", "Host is not the address of this door");
  }
  const bool isKnown = isSameSecret(access.token, behind(credentials.authorization, "Bearer ")) ||
                       isSameSecret(access.token, behind(credentials.protocols, tokenProtocol));
  if (isOpenToAll || isKnown) {
    return std::nullopt;
  }
  if (!showsCookie(access, credentials.cookies)) {
    return refusal(401, "unauthorized",
                   "the token is missing or wrong: Authorization: Bearer TOKEN");
  }
  // A browser also sends the cookie for pages that come from another port of this computer.
  if (!credentials.isRead && credentials.origin != "http://" + credentials.host) {
    return refusal(403, "forbidden", "with a cookie, Origin must be the address of this door");
  }
  return std::nullopt;
}

std::string randomToken() {
  std::array<unsigned char, 32> bytes{};
  if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    throw std::system_error(errno, std::generic_category(), "no random numbers");
  }
  std::string token;
  for (const unsigned char byte : bytes) {
    token += fmt::format("{:02x}", byte);
  }
  return token;
}

}  // namespace host
