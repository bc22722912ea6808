#pragma once

#include <yaml-cpp/mark.h>

#include <string>

#include "host/base/usererror.h"

namespace host {

/// The parser counts from 0; where it does not know, the text's begin.
SourceLocation positionOf(const YAML::Mark& mark);

/// Reads a YAML text without keeping anything of it: one document, and behind it
/// at most one without content. So the parser that keeps all meets neither a text
/// on which it would never end, nor one for which it takes too much memory. Throws
/// `UserError`, and `YAML::Exception` for what is no YAML.
void surveyYaml(const std::string& path, const std::string& text);

}  // namespace host
