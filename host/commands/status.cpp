#include "host/commands/status.h"

#include <cstdio>
#include <exception>

#include "host/input/source.h"
#include "simulation/machine.h"

namespace host {

void say(const std::string& text) {
  std::fputs(text.c_str(), stdout);
  std::fflush(stdout);
}

bool outputFailed() {
  return std::ferror(stdout) != 0;
}

void complain(const std::string& text) {
  std::fputs(text.c_str(), stderr);
  std::fflush(stderr);
}

int statusOf(const std::function<int()>& command) {
  try {
    return command();
  } catch (const InputError& error) {
    complain(std::string(error.what()) + "\n");
    return badInputStatus;
  } catch (const simulation::Error& error) {
    complain(std::string("torvex: error: ") + error.what() + "\n");
    return badInputStatus;
  } catch (const std::exception& error) {
    complain(std::string("torvex: error: ") + error.what() + "\n");
    return shortfallStatus;
  }
}

}  // namespace host
