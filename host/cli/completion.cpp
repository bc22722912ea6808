#include "host/cli/completion.h"

#include "host/cli/completionwords.h"

namespace host {

std::string completionScript(const std::string& shell, const std::vector<UsageCommand>& commands) {
  return shell == "bash"   ? bashCompletion(commands)
         : shell == "zsh"  ? zshCompletion(commands)
         : shell == "fish" ? fishCompletion(commands)
                           : std::string();
}

}  // namespace host
