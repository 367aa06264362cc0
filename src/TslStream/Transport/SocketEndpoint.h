#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace tsl {

// Where a stream socket lives: "unix:<path>", "tcp:<host>:<port>" or "vsock:<cid>:<port>".
struct SocketEndpoint {
    struct Unix {
        std::string path;
        bool operator==(const Unix&) const = default;
    };
    struct Tcp {
        std::string host;
        uint16_t port = 0;
        bool operator==(const Tcp&) const = default;
    };
    struct Vsock {
        uint32_t cid = 0;
        uint32_t port = 0;
        bool operator==(const Vsock&) const = default;
    };

    std::variant<Unix, Tcp, Vsock> value;

    static SocketEndpoint unix(std::string path) { return {Unix{std::move(path)}}; }
    static SocketEndpoint tcp(std::string host, uint16_t port) { return {Tcp{std::move(host), port}}; }
    static SocketEndpoint vsock(uint32_t cid, uint32_t port) { return {Vsock{cid, port}}; }

    // Parses the text form; nothing for text it cannot read.
    static std::optional<SocketEndpoint> parse(std::string_view text);
    std::string description() const;

    template <typename T> const T* get() const { return std::get_if<T>(&value); }
    bool isUnix() const { return get<Unix>() != nullptr; }
    bool isVsock() const { return get<Vsock>() != nullptr; }

    bool operator==(const SocketEndpoint&) const = default;
};

}  // namespace tsl
