#pragma once

#include <string>

#include "host/server/http.h"
#include "host/server/links.h"

namespace host {

/// What a browser is answered outside of `/v1`: the page, and how it comes in. I/O thread, save
/// for `newLink` before the door is open.
class PageAnswers {
 public:
  /// `address` is where browsers find the door, empty where they do not; `cookie` is what lets
  /// them in, NAME=VALUE.
  PageAnswers(std::string address, std::string cookie);

  /// Whether the request is one for `answer`.
  [[nodiscard]] static bool isFor(const Request& request);
  /// Throws `Refused`.
  Answer answer(const Request& request);
  /// An address that lets a browser in, once. Empty where browsers do not find the door.
  std::string newLink();

 private:
  [[nodiscard]] Answer entry(const std::string& key, bool isKnown);

  const std::string address_;
  const std::string cookie_;
  Links links_;
};

}  // namespace host
