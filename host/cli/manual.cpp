#include "host/cli/manual.h"

#include <fmt/format.h>

#include <sstream>

namespace host {
namespace {

/// Nothing in it is a request, a line of its own or not.
std::string escaped(const std::string& text) {
  std::string page;
  for (const char letter : text) {
    const bool atBegin = page.empty() || page.back() == '\n';
    page += atBegin && (letter == '.' || letter == '\'') ? "\\&" : "";
    page += letter == '\\' ? "\\e" : letter == '-' ? "\\-" : std::string(1, letter);
  }
  return page;
}

std::string header(const std::string& name, const std::string& what) {
  return fmt::format(".TH {} 1 \"\" \"torvex {}\"\n.SH NAME\n{} \\- {}\n", escaped(name),
                     TORVEX_VERSION, escaped(name), escaped(what));
}

std::string optionText(const UsageOption& option) {
  std::string names;
  for (const std::string& name : option.names) {
    names += fmt::format("{}\\fB{}\\fR", names.empty() ? "" : ", ", escaped(name));
  }
  const std::string type =
      option.type.empty() ? "" : fmt::format(" \\fI{}\\fR", escaped(option.type));
  const std::string otherwise =
      option.otherwise.empty() ? "" : fmt::format(" (default: {})", escaped(option.otherwise));
  return fmt::format(".TP\n{}{}\n{}{}\n", names, type, escaped(option.what), otherwise);
}

std::string section(const UsageCommand& command, const char* title, bool arguments) {
  std::string text;
  for (const UsageOption& option : command.options) {
    text += option.isArgument == arguments ? optionText(option) : "";
  }
  return text.empty() ? "" : fmt::format(".SH {}\n{}", title, text);
}

}  // namespace

std::string manualPage(const std::vector<UsageCommand>& commands) {
  std::string page = header("torvex", "runs the timed commands of a machine with actuators");
  page += ".SH SYNOPSIS\n\\fBtorvex\\fR \\fISUBCOMMAND\\fR [\\fIOPTIONS\\fR]\n.SH SUBCOMMANDS\n";
  for (const UsageCommand& command : commands) {
    page += fmt::format(".TP\n\\fB{}\\fR(1)\n{}\n", escaped("torvex-" + command.name),
                        escaped(command.what));
  }
  return page;
}

std::string manualPage(const UsageCommand& command) {
  std::string page = header("torvex-" + command.name, command.what);
  page += fmt::format(".SH SYNOPSIS\n\\fBtorvex {}\\fR [\\fIOPTIONS\\fR]", escaped(command.name));
  for (const UsageOption& option : command.options) {
    if (option.isArgument) {
      page += fmt::format(option.isRequired ? " \\fI{}\\fR{}" : " [\\fI{}\\fR{}]",
                          escaped(option.names.front()), option.isRepeatable ? "..." : "");
    }
  }
  page += "\n" + section(command, "ARGUMENTS", true) + section(command, "OPTIONS", false);
  return page + fmt::format(".SH NOTES\n.nf\n{}\n.fi\n", escaped(command.footer));
}

}  // namespace host
