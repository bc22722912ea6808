#include "host/server/pageanswers.h"

#include <fmt/format.h>

#include <utility>

#include "host/base/clocks.h"
#include "host/server/query.h"
#include "page/page.h"

namespace host {
namespace {

constexpr char usedLink[] =
    "This link has been used, is older than ten minutes, or never was one.\n"
    "For a new one: torvex link\n";

/// The page asks for what comes from this door alone, and for WebSockets there.
std::string contentPolicy(const std::string& host) {
  return fmt::format(
      "default-src 'self'; connect-src 'self'{}; base-uri 'none'; form-action 'none'; "
      "frame-ancestors 'none'; object-src 'none'",
      host.empty() ? "" : " ws://" + host);
}

}  // namespace

PageAnswers::PageAnswers(std::string address, std::string cookie)
    : address_(std::move(address)), cookie_(std::move(cookie)) {}

bool PageAnswers::isFor(const Request& request) {
  return request.method == "GET" && page::fileAt(request.path) != nullptr;
}

Answer PageAnswers::answer(const Request& request) {
  const Query query(request,
                    request.path == "/" ? std::set<std::string>{"link"} : std::set<std::string>{});
  if (const auto key = query.text("link")) {
    return entry(*key, request.isKnown);
  }
  const page::File& file = *page::fileAt(request.path);
  Answer answer;
  answer.body = file.text;
  answer.contentType = file.contentType;
  answer.fields.emplace_back("Content-Security-Policy", contentPolicy(request.host));
  return answer;
}

Answer PageAnswers::entry(const std::string& key, bool isKnown) {
  Answer answer;
  answer.contentType = "text/plain; charset=utf-8";
  const bool isKey = links_.use(key, bootNs());
  if (!isKey && !isKnown) {
    answer.status = 403;
    answer.body = usedLink;
    return answer;
  }
  answer.status = 303;
  answer.fields.emplace_back("Location", "/");
  if (isKey) {
    answer.fields.emplace_back("Set-Cookie", cookie_ + "; HttpOnly; SameSite=Strict; Path=/");
  }
  return answer;
}

std::string PageAnswers::newLink() {
  return address_.empty() ? "" : address_ + "/?link=" + links_.make(bootNs());
}

}  // namespace host
