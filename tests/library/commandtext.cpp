#include "commandtext.h"

#include <sstream>

CommandList listOf(const std::string& text) {
  CommandList commands;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    const auto equals = word.find('=');
    const float value = equals == std::string::npos ? 0.0F : std::stof(word.substr(equals + 1));
    commands.emplace_back(hal::AttrGeneric(value),
                          static_cast<std::uint32_t>(std::stoul(word, nullptr, 0)),
                          word.back() == '!');
  }
  return commands;
}

std::string textOf(const CommandList& commands) {
  std::ostringstream text;
  text << std::showbase;
  for (const TimedCommand::commandItem& item : commands) {
    text << (text.tellp() > 0 ? " " : "") << (item.time > 0xFFFF ? std::hex : std::dec) << item.time;
    if (item.value.asFloat != 0.0F) {
      text << '=' << item.value.asFloat;
    }
    text << (item.ignore ? "!" : "");
  }
  return text.str();
}
