#pragma once
#include <string>

namespace tsl {

// A fresh random (version 4) UUID in its upper-case text form.
std::string makeUUIDString();

}  // namespace tsl
