#include "TslStream/Transport/Socket.h"

#include <arpa/inet.h>
#include <linux/vm_sockets.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

namespace tsl {
namespace {

constexpr size_t unixPathLimit = 104;  // the guest platform's sun_path size, kept everywhere

void tune(int fd, bool tcp) {
    int one = 1;
    int buffer = 4 * 1024 * 1024;
    // No SO_NOSIGPIPE here: writes use MSG_NOSIGNAL instead.
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &buffer, sizeof buffer);
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &buffer, sizeof buffer);
    if (tcp) setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
}

int domainOf(const SocketEndpoint& e) {
    if (e.get<SocketEndpoint::Unix>()) return AF_UNIX;
    if (e.get<SocketEndpoint::Tcp>()) return AF_INET;
    return AF_VSOCK;
}

struct Address {
    sockaddr_storage storage{};
    socklen_t length = 0;
    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage); }
};

// Throws the endpoint's own refusals ("unix path too long", "bad IPv4 address").
Address addressOf(const SocketEndpoint& e) {
    Address a;
    if (auto u = e.get<SocketEndpoint::Unix>()) {
        if (u->path.size() >= unixPathLimit) throw SocketError("unix path too long", ENAMETOOLONG);
        auto* sun = reinterpret_cast<sockaddr_un*>(&a.storage);
        sun->sun_family = AF_UNIX;
        std::memcpy(sun->sun_path, u->path.data(), u->path.size());
        a.length = socklen_t(offsetof(sockaddr_un, sun_path) + u->path.size() + 1);
    } else if (auto t = e.get<SocketEndpoint::Tcp>()) {
        auto* sin = reinterpret_cast<sockaddr_in*>(&a.storage);
        sin->sin_family = AF_INET;
        sin->sin_port = htons(t->port);
        std::string host = t->host == "localhost" ? "127.0.0.1" : t->host;
        if (inet_pton(AF_INET, host.c_str(), &sin->sin_addr) != 1) throw SocketError("bad IPv4 address " + t->host, EINVAL);
        a.length = sizeof(sockaddr_in);
    } else {
        auto v = e.get<SocketEndpoint::Vsock>();
        auto* svm = reinterpret_cast<sockaddr_vm*>(&a.storage);
        svm->svm_family = AF_VSOCK;
        svm->svm_port = v->port;
        svm->svm_cid = v->cid;
        a.length = sizeof(sockaddr_vm);
    }
    return a;
}

int openSocket(const SocketEndpoint& e) {
    int fd = ::socket(domainOf(e), SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) throw SocketError("socket(" + e.description() + ")", errno);
    return fd;
}

// Restores the file-creation mask however the bind ends.
struct UmaskGuard {
    mode_t previous;
    explicit UmaskGuard(mode_t mask) : previous(::umask(mask)) {}
    ~UmaskGuard() { ::umask(previous); }
};

}  // namespace

void raiseDescriptorLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= limit.rlim_max) return;
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

bool peerIsThisUser(int fd) {
    ucred peer{};
    socklen_t size = sizeof peer;
    return ::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == ::getuid();
}

int connectSocket(const SocketEndpoint& to) {
    int fd = openSocket(to);
    tune(fd, to.get<SocketEndpoint::Tcp>() != nullptr);
    try {
        Address a = addressOf(to);
        int rc;
        do rc = ::connect(fd, a.get(), a.length);
        while (rc != 0 && errno == EINTR);
        if (rc != 0) throw SocketError("connect(" + to.description() + ")", errno);
    } catch (...) {
        ::close(fd);
        throw;
    }
    return fd;
}

std::pair<int, int> socketPair() {
    int fds[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) throw SocketError("socketpair", errno);
    tune(fds[0], false);
    tune(fds[1], false);
    return {fds[0], fds[1]};
}

SocketListener::SocketListener(const SocketEndpoint& endpoint, int backlog) : _endpoint(endpoint) {
    int s = openSocket(endpoint);
    int one = 1;
    setsockopt(s, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    try {
        Address a = addressOf(endpoint);
        auto u = endpoint.get<SocketEndpoint::Unix>();
        int rc;
        if (u) {
            ::unlink(u->path.c_str());
            UmaskGuard mask(077);
            rc = ::bind(s, a.get(), a.length);
        } else {
            rc = ::bind(s, a.get(), a.length);
        }
        if (rc != 0 || ::listen(s, backlog) != 0) throw SocketError("bind/listen(" + endpoint.description() + ")", errno);
        if (u) ::chmod(u->path.c_str(), 0600);
    } catch (...) {
        ::close(s);
        throw;
    }
    fd = s;
}

SocketListener::~SocketListener() { close(); }

int SocketListener::accept() {
    int s;
    {
        std::lock_guard guard(lock);
        s = fd;
    }
    if (s < 0) throw SocketError("accept", EBADF);
    int c = ::accept4(s, nullptr, nullptr, SOCK_CLOEXEC);
    if (c < 0) throw SocketError("accept", errno);
    tune(c, _endpoint.get<SocketEndpoint::Tcp>() != nullptr);
    return c;
}

bool SocketListener::awaitPeer(std::optional<std::chrono::milliseconds> limit) {
    int s;
    {
        std::lock_guard guard(lock);
        s = fd;
    }
    if (s < 0) return true;
    pollfd p{s, POLLIN, 0};
    int rc;
    do rc = ::poll(&p, 1, limit ? int(std::clamp<int64_t>(limit->count(), 0, INT32_MAX)) : -1);
    while (rc < 0 && errno == EINTR);
    return rc != 0;
}

void SocketListener::close() {
    int s;
    {
        std::lock_guard guard(lock);
        s = fd;
        fd = -1;
    }
    if (s < 0) return;
    ::shutdown(s, SHUT_RDWR);
    ::close(s);
    if (auto u = _endpoint.get<SocketEndpoint::Unix>()) ::unlink(u->path.c_str());
}

std::optional<uint16_t> SocketListener::boundTCPPort() const {
    std::lock_guard guard(lock);
    if (fd < 0) return std::nullopt;
    sockaddr_storage ss{};
    socklen_t len = sizeof ss;
    if (::getsockname(fd, reinterpret_cast<sockaddr*>(&ss), &len) != 0 || ss.ss_family != AF_INET) return std::nullopt;
    return ntohs(reinterpret_cast<sockaddr_in*>(&ss)->sin_port);
}

}  // namespace tsl
