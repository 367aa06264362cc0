#pragma once
#include <unistd.h>

#include <utility>

namespace tsl {

// Sole owner of one file descriptor; closes it when it goes.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) noexcept : _fd(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : _fd(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd() { reset(); }

    int get() const noexcept { return _fd; }
    bool valid() const noexcept { return _fd >= 0; }
    explicit operator bool() const noexcept { return valid(); }
    int release() noexcept { return std::exchange(_fd, -1); }
    void reset(int fd = -1) noexcept {
        if (_fd >= 0) ::close(_fd);
        _fd = fd;
    }

private:
    int _fd = -1;
};

}  // namespace tsl
