#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <optional>
#include <string_view>

namespace host {

/// What files, options and messages call a value.
template <typename Value>
struct Word {
  const char* text;
  Value value;
};

/// The word for a value; empty where there is none.
template <typename Value, std::size_t count>
const char* wordFor(const Word<Value> (&words)[count], Value value) {
  const auto* const found =
      std::find_if(std::begin(words), std::end(words),
                   [&value](const Word<Value>& word) { return word.value == value; });
  return found == std::end(words) ? "" : found->text;
}

/// The value of a word; none where it is no word.
template <typename Value, std::size_t count>
std::optional<Value> valueOf(const Word<Value> (&words)[count], std::string_view text) {
  const auto* const found =
      std::find_if(std::begin(words), std::end(words),
                   [&text](const Word<Value>& word) { return word.text == text; });
  return found == std::end(words) ? std::nullopt : std::optional(found->value);
}

}  // namespace host
