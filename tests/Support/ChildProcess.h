#pragma once
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cerrno>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace tsl::test {

// A real child process with its standard output and error on pipes. Killed
// at the end of scope if still running.
class ChildProcess {
public:
    explicit ChildProcess(const std::string& program, const std::vector<std::string>& args) {
        int out[2], err[2];
        if (::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, out[1], 1);
        posix_spawn_file_actions_adddup2(&actions, err[1], 2);
        std::vector<char*> argv{const_cast<char*>(program.c_str())};
        for (auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        int rc = ::posix_spawn(&_pid, program.c_str(), &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        ::close(out[1]);
        ::close(err[1]);
        _out = out[0];
        _err = err[0];
        if (rc != 0) throw std::runtime_error("spawn " + program);
    }
    ~ChildProcess() {
        if (!_status) {
            ::kill(_pid, SIGKILL);
            ::waitpid(_pid, nullptr, 0);
        }
        ::close(_out);
        ::close(_err);
    }

    // Exit status, or nothing if it has not ended within the limit.
    std::optional<int> wait(std::chrono::milliseconds limit = std::chrono::seconds(20)) {
        auto deadline = std::chrono::steady_clock::now() + limit;
        while (!_status) {
            int st = 0;
            pid_t r = ::waitpid(_pid, &st, WNOHANG);
            if (r == _pid) _status = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
            else if (std::chrono::steady_clock::now() > deadline) return std::nullopt;
            else std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        drain();
        return _status;
    }

    // Reads standard output until it holds `text`, or the limit passes.
    bool waitForOutput(const std::string& text, std::chrono::milliseconds limit = std::chrono::seconds(20)) {
        return waitFor(_out, _stdout, text, limit);
    }
    bool waitForError(const std::string& text, std::chrono::milliseconds limit = std::chrono::seconds(20)) {
        return waitFor(_err, _stderr, text, limit);
    }

    void signal(int sig) { ::kill(_pid, sig); }
    pid_t pid() const { return _pid; }
    const std::string& standardOutput() const { return _stdout; }
    const std::string& standardError() const { return _stderr; }

private:
    bool waitFor(int fd, std::string& into, const std::string& text, std::chrono::milliseconds limit) {
        auto deadline = std::chrono::steady_clock::now() + limit;
        while (into.find(text) == std::string::npos) {
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0) return false;
            pollfd p{fd, POLLIN, 0};
            if (::poll(&p, 1, int(left.count())) <= 0) return false;
            char buf[4096];
            ssize_t n = ::read(fd, buf, sizeof buf);
            if (n <= 0) return into.find(text) != std::string::npos;
            into.append(buf, size_t(n));
        }
        return true;
    }
    void drain() {
        for (auto [fd, into] : {std::pair{_out, &_stdout}, std::pair{_err, &_stderr}}) {
            char buf[4096];
            int flags = ::fcntl(fd, F_GETFL);
            ::fcntl(fd, F_SETFL, flags | O_NONBLOCK);
            ssize_t n;
            while ((n = ::read(fd, buf, sizeof buf)) > 0) into->append(buf, size_t(n));
        }
    }

    pid_t _pid = -1;
    int _out = -1, _err = -1;
    std::string _stdout, _stderr;
    std::optional<int> _status;
};

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
