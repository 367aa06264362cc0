#pragma once
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

extern char** environ;

namespace tsl::test {

// A real child process with its standard output and error on pipes. Killed
// at the end of scope if still running.
class ChildProcess {
public:
    // `environment`'s NAME=value entries replace or add to this process's own.
    explicit ChildProcess(const std::string& program, const std::vector<std::string>& args,
                          const std::vector<std::string>& environment = {}) {
        int out[2], err[2];
        if (::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, out[1], 1);
        posix_spawn_file_actions_adddup2(&actions, err[1], 2);
        std::vector<char*> argv{const_cast<char*>(program.c_str())};
        for (auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        std::vector<char*> envp;
        auto given = [&](std::string_view entry) {
            const std::string_view name = entry.substr(0, entry.find('=') + 1);
            for (const auto& e : environment)
                if (std::string_view(e).substr(0, e.find('=') + 1) == name) return true;
            return false;
        };
        for (char** e = environ; *e; ++e)
            if (!given(*e)) envp.push_back(*e);
        for (auto& e : environment) envp.push_back(const_cast<char*>(e.c_str()));
        envp.push_back(nullptr);
        int rc = ::posix_spawn(&_pid, program.c_str(), &actions, nullptr, argv.data(), envp.data());
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

    // Takes in what the child has written so far without waiting, so that a
    // chatty child never blocks on a full pipe.
    void collectOutput() { drain(); }

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

// A server for the test program's run. The kernel sends it SIGTERM when the
// program ends, even when a sanitizer halts it, so no server outlives a
// failed run. The signal follows the thread that starts it: the main one.
inline std::unique_ptr<ChildProcess> startServer(const std::string& program, const std::vector<std::string>& args) {
    std::vector<std::string> wrapped{"--pdeathsig", "TERM", program};
    wrapped.insert(wrapped.end(), args.begin(), args.end());
    return std::make_unique<ChildProcess>("/usr/bin/setpriv", wrapped);
}

}  // namespace tsl::test
