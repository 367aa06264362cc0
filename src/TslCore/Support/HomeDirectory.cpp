#include "TslCore/Support/HomeDirectory.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>

namespace tsl {

std::string homeDirectory() {
    if (const char* home = std::getenv("HOME"); home && *home) return home;
    if (const passwd* pw = ::getpwuid(::getuid()); pw && pw->pw_dir) return pw->pw_dir;
    return "/";
}

}  // namespace tsl
