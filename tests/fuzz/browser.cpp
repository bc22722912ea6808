// What a browser may send to come in: cookies and other fields of a head, links, paths of meshes
// and motions, one a line.

#include <fcntl.h>

#include <filesystem>
#include <sstream>

#include "host/base/heldfolder.h"
#include "host/server/access.h"
#include "host/server/meshes.h"
#include "host/server/pageanswers.h"
#include "host/server/refused.h"
#include "host/server/target.h"
#include "input.h"
#include "tests/support/temporary.h"

namespace {

constexpr char secret[] = "0123456789abcdef";

/// Whoever does not show the secret stays out.
void knock(const std::string& line) {
  static const host::Access access{
      {"localhost:1"}, {"http://localhost:1"}, secret, std::string("torvex_1=") + secret};
  host::Credentials shown;
  shown.host = "localhost:1";
  shown.authorization = shown.protocols = shown.cookies = line;
  for (const bool isRead : {false, true}) {
    shown.isRead = isRead;
    const bool isIn = !refusedEntry(access, shown, false);
    require(!isIn || line.find(secret) != std::string::npos, "let in: " + line);
  }
}

/// What is answered comes from the packages, in which nothing has this text.
void ask(const std::string& line) {
  static const Temporary folder;
  static const bool isLaid = [] {
    std::filesystem::create_directories(folder.path("packages/p/m"));
    (void)folder.write("packages/p/m/a.stl", "mesh");
    (void)folder.write("outside", secret);
    std::filesystem::create_symlink("../../../outside", folder.path("packages/p/m/link"));
    std::filesystem::create_symlink("../..", folder.path("packages/p/up"));
    return true;
  }();
  static const host::Meshes meshes({folder.path("packages")}, nullptr);
  static host::PageAnswers page("http://localhost:1", std::string("torvex_1=") + secret);
  (void)isLaid;
  host::Request request;
  if (!host::readTarget(line, request)) {
    return;
  }
  request.method = "GET";
  try {
    const host::Answer answer = host::PageAnswers::isFor(request)
                                    ? page.answer(request)
                                    : meshes.answer(request.path.substr(1));
    require(answer.body.find(secret) == std::string::npos, "led out: " + line);
    for (const auto& [name, value] : answer.fields) {
      require(value.find(secret) == std::string::npos, "a cookie for " + line);
    }
  } catch (const host::Refused&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::istringstream lines(std::string(reinterpret_cast<const char*>(data), size));
  for (std::string line; std::getline(lines, line);) {
    knock(line);
    ask(line);
  }
  return 0;
}
