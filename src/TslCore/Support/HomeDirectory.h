#pragma once
#include <string>

namespace tsl {

// The user's home: $HOME when set, else the password database's entry, else "/".
std::string homeDirectory();

}  // namespace tsl
