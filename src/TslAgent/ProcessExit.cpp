#include "TslAgent/ProcessExit.h"

#include <unistd.h>

#include <cstdio>

#include "TslStream/Support/Logger.h"

namespace tsl {

void exitProcess(int status) {
    std::fflush(stdout);
    std::fflush(stderr);
    Logger::flushAll();
    ::_exit(status);
}

}  // namespace tsl
