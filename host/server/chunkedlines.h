#pragma once

#include <string>

#include "host/server/http.h"

namespace host {

// The lines of a feed as the body of an answer of HTTP/1.1, in chunks.

/// The head of that answer.
std::string linesHead();
/// What the feed has by now, within `bounds::linesBytes`; empty where it has nothing.
std::string nextLines(Feed& feed);
/// The end of the body.
std::string linesEnd();

}  // namespace host
