#include "host/base/plainname.h"

namespace host {
namespace {

constexpr char plainCharacters[] =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-";

}  // namespace

bool isPlainName(const std::string& text) {
  return text.find_first_not_of(plainCharacters) == std::string::npos;
}

std::string plainName(const std::string& text, std::size_t longest) {
  std::string name = text.substr(0, longest);
  for (std::size_t at = 0;
       (at = name.find_first_not_of(plainCharacters, at)) != std::string::npos;) {
    name[at] = '_';
  }
  return name;
}

}  // namespace host
