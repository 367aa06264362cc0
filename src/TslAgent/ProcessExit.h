#pragma once
#include <functional>

namespace tsl {

// How the agent ends its process. The executable exits for real; tests pass
// a function that records the status instead, and the caller then carries on
// as if the process had gone (it stops what it was doing).
using ProcessExit = std::function<void(int status)>;

// Flushes standard output and the log, then ends the process at once: other
// threads are still running, so no static destructors run.
[[noreturn]] void exitProcess(int status);

}  // namespace tsl
