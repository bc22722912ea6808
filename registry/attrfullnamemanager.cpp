#include "registry/attrfullnamemanager.h"

namespace {
AttrFullName* gAttrFullName = nullptr;
}  // namespace

AttrFullName* getAttrFullNameManager() {
  return gAttrFullName;
}

void setAttrFullNameManager(AttrFullName* attrFullName) {
  gAttrFullName = attrFullName;
}
