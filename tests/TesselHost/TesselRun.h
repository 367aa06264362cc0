#pragma once
#include <optional>
#include <string>
#include <vector>

#include "Support/ChildProcess.h"
#include "Support/TestPaths.h"

namespace tsl::test {

struct TesselRun {
    std::optional<int> status;
    std::string out, err;
};

// The whole output must fit the pipes (64 KiB each): the child's output is
// read once it has ended.
inline TesselRun runTessel(const std::vector<std::string>& args) {
    ChildProcess child(tesselExecutable(), args);
    TesselRun run;
    run.status = child.wait();
    run.out = child.standardOutput();
    run.err = child.standardError();
    return run;
}

}  // namespace tsl::test
