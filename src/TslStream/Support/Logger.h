#pragma once
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <type_traits>

namespace tsl {

// One logger per subsystem and category. Messages use printf-style format
// strings with the privacy markers of the guest platform ("%{public}s",
// "%{bool}d"); the markers are stripped, a bool conversion prints true/false.
// Arguments are captured type-safely, so a mismatched conversion never reads
// past the argument list.
class Logger {
public:
    enum class Level : uint8_t { debug, info, notice, error, fault };

    struct Arg {
        enum class Kind : uint8_t { i, u, f, s, p } kind;
        union {
            long long i;
            unsigned long long u;
            double f;
            const void* p;
        };
        std::string_view s;

        template <typename T>
        Arg(const T& v) {  // NOLINT: implicit on purpose
            if constexpr (std::is_same_v<T, bool>) { kind = Kind::i; i = v ? 1 : 0; }
            else if constexpr (std::is_integral_v<T> && std::is_signed_v<T>) { kind = Kind::i; i = v; }
            else if constexpr (std::is_integral_v<T>) { kind = Kind::u; u = v; }
            else if constexpr (std::is_enum_v<T>) { kind = Kind::u; u = (unsigned long long)v; }
            else if constexpr (std::is_floating_point_v<T>) { kind = Kind::f; f = v; }
            else if constexpr (std::is_convertible_v<const T&, std::string_view>) { kind = Kind::s; s = std::string_view(v); }
            else if constexpr (std::is_pointer_v<T>) { kind = Kind::p; p = v; }
            else static_assert(!sizeof(T), "unsupported log argument");
        }
    };

    Logger(std::string subsystem, std::string category);

    template <typename... A> void debug(const char* fmt, const A&... a) const { log(Level::debug, fmt, {Arg(a)...}); }
    template <typename... A> void info(const char* fmt, const A&... a) const { log(Level::info, fmt, {Arg(a)...}); }
    template <typename... A> void notice(const char* fmt, const A&... a) const { log(Level::notice, fmt, {Arg(a)...}); }
    template <typename... A> void error(const char* fmt, const A&... a) const { log(Level::error, fmt, {Arg(a)...}); }
    template <typename... A> void fault(const char* fmt, const A&... a) const { log(Level::fault, fmt, {Arg(a)...}); }

    void log(Level level, const char* fmt, std::initializer_list<Arg> args) const;

    const std::string& subsystem() const { return _subsystem; }
    const std::string& category() const { return _category; }

    // Renders a format string with its arguments exactly as a log line would.
    static std::string render(std::string_view fmt, std::initializer_list<Arg> args);

    // Every rendered line also goes here when set (tests read log lines).
    using Observer = void (*)(const Logger&, Level, const std::string&);
    static void setObserver(Observer observer);

    // Writes out whatever every logger still holds, before the process ends.
    static void flushAll();

private:
    std::string _subsystem;
    std::string _category;
    void* _backend;  // spdlog logger, kept out of this header
};

}  // namespace tsl
