#include "TslStream/Support/Subprocess.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <thread>

#include "Platform/System.h"
#include "TslStream/Runtime/Runtime.h"

extern char** environ;

namespace tsl {

struct Subprocess::State {
    std::mutex lock;
    bool running = true;
};

Subprocess::Subprocess(const std::filesystem::path& executable, const std::vector<std::string>& arguments,
                       TerminationHandler onTermination)
    : state(std::make_shared<State>()) {
    std::string program = executable.string();
    std::vector<char*> argv{program.data()};
    std::vector<std::string> copies = arguments;
    for (auto& a : copies) argv.push_back(a.data());
    argv.push_back(nullptr);
    int rc = ::posix_spawn(&_pid, program.c_str(), nullptr, nullptr, argv.data(), environ);
    if (rc != 0) throw LaunchError("cannot launch " + program + ": " + std::strerror(rc));
    std::thread([pid = _pid, state = state, onTermination = std::move(onTermination)] {
        setThreadName("tsl.child");
        // Waits without reaping first: until `running` is false the pid stays
        // this child's, so terminate() can never signal a stranger.
        siginfo_t info{};
        while (::waitid(P_PID, id_t(pid), &info, WEXITED | WNOWAIT) < 0 && errno == EINTR) {
        }
        int status = 0;
        {
            std::lock_guard guard(state->lock);
            state->running = false;
            while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
            }
        }
        if (onTermination) onTermination(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
    }).detach();
}

Subprocess::~Subprocess() = default;

bool Subprocess::isRunning() const {
    std::lock_guard guard(state->lock);
    return state->running;
}

void Subprocess::terminate() {
    // Under the lock, so the pid can't have been reaped and reused meanwhile.
    std::lock_guard guard(state->lock);
    if (state->running) ::kill(_pid, SIGTERM);
}

}  // namespace tsl
