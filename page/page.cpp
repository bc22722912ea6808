#include "page/page.h"

#include <algorithm>

#include "page/embedded.h"

namespace page {

const File* fileAt(std::string_view path) {
  const File* const end = embedded + embeddedCount;
  const File* const found =
      std::find_if(embedded, end, [path](const File& file) { return file.path == path; });
  return found == end ? nullptr : found;
}

}  // namespace page
