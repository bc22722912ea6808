#include "registry/torvexmanager.h"

namespace {
Torvex* gTorvex = nullptr;
}  // namespace

Torvex* getTorvexManager() {
  return gTorvex;
}

void setTorvexManager(Torvex* torvex) {
  gTorvex = torvex;
}
