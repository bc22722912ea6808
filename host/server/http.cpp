#include "host/server/http.h"

namespace host {

std::vector<std::pair<std::string, std::string>> headFields(const Answer& answer) {
  std::vector<std::pair<std::string, std::string>> fields = {
      {"Content-Type", answer.contentType},
      {"Cache-Control", "no-store"},
      // Nothing that is answered may act in a browser, save where the answer itself says so.
      {"Content-Security-Policy", "default-src 'none'; frame-ancestors 'none'; sandbox"},
      {"Cross-Origin-Resource-Policy", "same-origin"},
      {"Referrer-Policy", "no-referrer"},
      {"X-Content-Type-Options", "nosniff"}};
  fields.insert(fields.end(), answer.fields.begin(), answer.fields.end());
  return fields;
}

}  // namespace host
