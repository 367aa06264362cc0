#pragma once
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "TslCore/Support/Bytes.h"
#include "TslCore/Support/Error.h"

namespace tsl {

// A child process could not be started; the text is the platform's own.
struct LaunchError : Error {
    using Error::Error;
};

// Facts about this machine and process, and child processes.
class System {
public:
    struct ChildResult {
        int32_t exitStatus = 0;  // 128 + the signal number for a process killed by one
        Bytes standardOutput;
        bool operator==(const ChildResult&) const = default;
    };

    virtual ~System() = default;

    // An integer kernel setting; nothing when it can't be read.
    virtual std::optional<int64_t> sysctlInteger(const std::string& name) = 0;
    virtual std::string operatingSystemVersionString() = 0;
    // The current user's home folder.
    virtual std::filesystem::path homeDirectory() = 0;
    // This process's own id.
    virtual int32_t processIdentifier() = 0;

    // Runs `executable` with `arguments`, standard output to a pipe read to
    // its end, standard error to the null device, and waits for it to exit.
    // Blocks the calling thread. Throws LaunchError when it can't be started.
    virtual ChildResult run(const std::filesystem::path& executable, const std::vector<std::string>& arguments) = 0;
};

}  // namespace tsl
