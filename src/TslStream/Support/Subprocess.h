#pragma once
#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tsl {

// A child process that runs beside this one: started, asked to terminate,
// watched until it exits. Standard input, output and error are inherited.
// A thread of its own waits for the exit and then calls the termination
// handler there. Dropping the object leaves the child running.
// Threading: every member from any thread.
class Subprocess {
public:
    // Exit status, or 128 + the signal number for a child a signal ended.
    using TerminationHandler = std::function<void(int status)>;

    // Throws LaunchError when the child can't be started.
    Subprocess(const std::filesystem::path& executable, const std::vector<std::string>& arguments,
               TerminationHandler onTermination = nullptr);
    ~Subprocess();
    Subprocess(const Subprocess&) = delete;
    Subprocess& operator=(const Subprocess&) = delete;

    pid_t pid() const { return _pid; }
    bool isRunning() const;
    // The polite signal (SIGTERM); nothing once it has exited.
    void terminate();

private:
    struct State;
    pid_t _pid = 0;
    std::shared_ptr<State> state;
};

}  // namespace tsl
