#include "host/input/commandbatch.h"

namespace host {

const char* modeName(TimedCommand::commandType mode) {
  switch (mode) {
    case TimedCommand::REPLACE:
      return "replace";
    case TimedCommand::CLEAR_AFTER:
      return "clear_after";
    case TimedCommand::CLEAR_BEFORE:
      return "clear_before";
    case TimedCommand::MERGE:
      break;
  }
  return "merge";
}

}  // namespace host
