#pragma once
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

extern char** environ;

namespace tsl::test {

struct ChildResult {
    int status = -1;  // exit status, or -1 when it didn't exit in time or couldn't start
    std::string out;
    std::string err;
};

// Runs a program to its end with its standard output and error captured. A
// child still running at the deadline is killed and reported with status -1.
inline ChildResult runChild(const std::vector<std::string>& argv,
                            std::chrono::milliseconds deadline = std::chrono::seconds(60)) {
    ChildResult result;
    int outPipe[2], errPipe[2];
    if (::pipe(outPipe) != 0) return result;
    if (::pipe(errPipe) != 0) {
        ::close(outPipe[0]), ::close(outPipe[1]);
        return result;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, outPipe[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errPipe[1], STDERR_FILENO);
    posix_spawn_file_actions_addclose(&actions, outPipe[0]);
    posix_spawn_file_actions_addclose(&actions, errPipe[0]);
    std::vector<char*> args;
    for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    pid_t pid = -1;
    const int spawned = ::posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(outPipe[1]), ::close(errPipe[1]);
    if (spawned != 0) {
        ::close(outPipe[0]), ::close(errPipe[0]);
        return result;
    }
    const auto end = std::chrono::steady_clock::now() + deadline;
    pollfd fds[2] = {{outPipe[0], POLLIN, 0}, {errPipe[0], POLLIN, 0}};
    std::string* sinks[2] = {&result.out, &result.err};
    int open = 2;
    bool late = false;
    while (open > 0) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            late = true;
            break;
        }
        if (::poll(fds, 2, static_cast<int>(left.count())) < 0) continue;
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
            char buffer[65536];
            const ssize_t n = ::read(fds[i].fd, buffer, sizeof buffer);
            if (n > 0) {
                sinks[i]->append(buffer, static_cast<size_t>(n));
            } else {
                ::close(fds[i].fd);
                fds[i].fd = -1;
                --open;
            }
        }
    }
    for (auto& fd : fds)
        if (fd.fd >= 0) ::close(fd.fd);
    if (late) ::kill(pid, SIGKILL);
    int status = 0;
    ::waitpid(pid, &status, 0);
    if (!late && WIFEXITED(status)) result.status = WEXITSTATUS(status);
    return result;
}

}  // namespace tsl::test
