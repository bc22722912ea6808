#pragma once

namespace bench {

/// Has the head of the table and the JSON say what was measured on, and how it
/// was built.
void noteSurroundings();

}  // namespace bench
