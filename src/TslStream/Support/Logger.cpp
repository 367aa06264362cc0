#include "TslStream/Support/Logger.h"

#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <atomic>
#include <cstdio>
#include <mutex>
#include <vector>

namespace tsl {
namespace {

std::atomic<Logger::Observer> gObserver{nullptr};

std::shared_ptr<spdlog::logger> backendFor(const std::string& name) {
    static std::mutex lock;
    std::lock_guard guard(lock);
    if (auto existing = spdlog::get(name)) return existing;
    auto logger = spdlog::stderr_logger_mt(name);
    logger->set_pattern("%Y-%m-%d %H:%M:%S.%e [%n] %l: %v");
    logger->set_level(spdlog::level::info);
    // Threads still draining a connection may log while statics are torn down
    // at exit: the registry lets go of its loggers then, so they are kept here.
    static auto* kept = new std::vector<std::shared_ptr<spdlog::logger>>;
    kept->push_back(logger);
    return logger;
}

spdlog::level::level_enum toSpd(Logger::Level level) {
    switch (level) {
        case Logger::Level::debug: return spdlog::level::debug;
        case Logger::Level::info: return spdlog::level::info;
        case Logger::Level::notice: return spdlog::level::info;
        case Logger::Level::error: return spdlog::level::err;
        case Logger::Level::fault: return spdlog::level::critical;
    }
    return spdlog::level::info;
}

// Text from the other side or from files must not forge a line or reach a
// terminal as escape sequences: C0 and C1 controls, DEL and the backslash
// itself are written as escapes.
void appendEscaped(std::string& out, std::string_view text) {
    static constexpr char hex[] = "0123456789abcdef";
    for (size_t i = 0; i < text.size(); ++i) {
        auto c = static_cast<unsigned char>(text[i]);
        unsigned code = c;
        size_t width = 1;
        if (c == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) >= 0x80 &&
            static_cast<unsigned char>(text[i + 1]) <= 0x9F) {
            code = static_cast<unsigned char>(text[i + 1]);
            width = 2;
        } else if (c >= 0x20 && c != 0x7F && c != '\\') {
            out += char(c);
            continue;
        }
        i += width - 1;
        switch (code) {
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            case '\t': out += "\\t"; break;
            case '\\': out += "\\\\"; break;
            default:
                out += width == 1 ? "\\x" : "\\u00";
                out += hex[code >> 4];
                out += hex[code & 15];
        }
    }
}

void appendOne(std::string& out, const std::string& format, char conv, const Logger::Arg& a, bool asBool) {
    char buf[512];
    int n = 0;
    using K = Logger::Arg::Kind;
    if (asBool) {
        bool v = a.kind == K::f ? a.f != 0 : a.kind == K::s ? !a.s.empty() : a.u != 0;
        out += v ? "true" : "false";
        return;
    }
    switch (conv) {
        case 's':
            if (a.kind == K::s) {
                appendEscaped(out, a.s);
                return;
            }
            if (a.kind == K::i) { out += std::to_string(a.i); return; }
            if (a.kind == K::u) { out += std::to_string(a.u); return; }
            if (a.kind == K::f) { n = std::snprintf(buf, sizeof buf, "%g", a.f); break; }
            n = std::snprintf(buf, sizeof buf, "%p", a.p);
            break;
        case 'd': case 'i': {
            long long v = a.kind == K::i ? a.i : a.kind == K::u ? (long long)a.u : a.kind == K::f ? (long long)a.f : 0;
            n = std::snprintf(buf, sizeof buf, (format + "lld").c_str(), v);
            break;
        }
        case 'u': case 'x': case 'X': case 'o': {
            unsigned long long v = a.kind == K::u ? a.u : a.kind == K::i ? (unsigned long long)a.i : a.kind == K::f ? (unsigned long long)a.f : 0;
            n = std::snprintf(buf, sizeof buf, (format + "ll" + conv).c_str(), v);
            break;
        }
        case 'f': case 'e': case 'g': case 'F': case 'E': case 'G': {
            double v = a.kind == K::f ? a.f : a.kind == K::i ? double(a.i) : a.kind == K::u ? double(a.u) : 0.0;
            n = std::snprintf(buf, sizeof buf, (format + conv).c_str(), v);
            break;
        }
        case 'p':
            n = std::snprintf(buf, sizeof buf, "%p", a.kind == K::p ? a.p : nullptr);
            break;
        default:
            return;
    }
    if (n > 0) out.append(buf, std::min<size_t>(size_t(n), sizeof buf - 1));
}

}  // namespace

Logger::Logger(std::string subsystem, std::string category)
    : _subsystem(std::move(subsystem)), _category(std::move(category)),
      _backend(backendFor(_subsystem + ":" + _category).get()) {}

std::string Logger::render(std::string_view fmt, std::initializer_list<Arg> args) {
    std::string out;
    auto next = args.begin();
    for (size_t i = 0; i < fmt.size(); ++i) {
        char c = fmt[i];
        if (c != '%') { out += c; continue; }
        if (i + 1 < fmt.size() && fmt[i + 1] == '%') { out += '%'; ++i; continue; }
        size_t j = i + 1;
        bool asBool = false;
        if (j < fmt.size() && fmt[j] == '{') {
            size_t close = fmt.find('}', j);
            if (close == std::string_view::npos) { out.append(fmt.substr(i)); break; }
            asBool = fmt.substr(j + 1, close - j - 1) == "bool";
            j = close + 1;
        }
        std::string format = "%";
        while (j < fmt.size() && std::string_view("-+ #0123456789.").find(fmt[j]) != std::string_view::npos) format += fmt[j++];
        while (j < fmt.size() && std::string_view("hlLqjzt").find(fmt[j]) != std::string_view::npos) ++j;
        if (j >= fmt.size()) break;
        char conv = fmt[j];
        i = j;
        if (next == args.end()) continue;
        appendOne(out, format, conv, *next++, asBool);
    }
    return out;
}

void Logger::log(Level level, const char* fmt, std::initializer_list<Arg> args) const {
    std::string line = render(fmt, args);
    static_cast<spdlog::logger*>(_backend)->log(toSpd(level), "{}", line);
    if (auto observer = gObserver.load()) observer(*this, level, line);
}

void Logger::setObserver(Observer observer) { gObserver.store(observer); }

void Logger::flushAll() {
    spdlog::apply_all([](const std::shared_ptr<spdlog::logger>& logger) { logger->flush(); });
}

}  // namespace tsl
