#include "Platform/Linux/LinuxSystem.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>

#include "TslCore/Support/BoundedFile.h"
#include "TslCore/Support/HomeDirectory.h"

extern char** environ;

namespace tsl {

std::optional<int64_t> LinuxSystem::sysctlInteger(const std::string& name) {
    if (name.empty() || name.find('/') != std::string::npos || name.find("..") != std::string::npos)
        return std::nullopt;
    std::string relative = name;  // "kern.ostype" is /proc/sys/kern/ostype
    for (char& c : relative) {
        if (c == '.') c = '/';
    }
    auto read = BoundedFile::bytesOf("/proc/sys/" + relative, 4096);
    if (!read) return std::nullopt;
    std::string& text = *read;
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
    int64_t value = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

std::string LinuxSystem::operatingSystemVersionString() {
    utsname u{};
    if (::uname(&u) != 0) return "Version unknown";
    return std::string("Version ") + u.release + " (" + u.sysname + " " + u.machine + ")";
}

std::filesystem::path LinuxSystem::homeDirectory() { return tsl::homeDirectory(); }

int32_t LinuxSystem::processIdentifier() { return int32_t(::getpid()); }

System::ChildResult LinuxSystem::run(const std::filesystem::path& executable,
                                     const std::vector<std::string>& arguments) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) throw LaunchError(std::string("pipe: ") + std::strerror(errno));

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    std::string program = executable.string();
    std::vector<char*> argv{program.data()};
    std::vector<std::string> args = arguments;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_t pid = -1;
    const int spawned = ::posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(fds[1]);
    if (spawned != 0) {
        ::close(fds[0]);
        throw LaunchError("The file “" + executable.filename().string() + "” couldn’t be opened: " +
                          std::strerror(spawned));
    }

    ChildResult result;
    uint8_t buffer[4096];
    for (;;) {
        const ssize_t n = ::read(fds[0], buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        result.standardOutput.insert(result.standardOutput.end(), buffer, buffer + n);
    }
    ::close(fds[0]);
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    result.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

}  // namespace tsl
