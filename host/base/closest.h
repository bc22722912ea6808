#pragma once

#include <string>
#include <vector>

namespace host {

/// "; did you mean 'run'?" with the one of these that differs least from the text, by few letters;
/// empty when none does.
std::string didYouMean(const std::string& text, const std::vector<std::string>& known);

}  // namespace host
