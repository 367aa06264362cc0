#pragma once
#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "TslStream/Support/Logger.h"

namespace tsl::test {

// Log lines, while in scope.
class LogLines {
public:
    LogLines() {
        {
            std::lock_guard g(m());
            lines().clear();
        }
        Logger::setObserver(&record);
    }
    ~LogLines() { Logger::setObserver(nullptr); }
    static std::vector<std::string> all() {
        std::lock_guard g(m());
        return lines();
    }
    static int count(const std::string& line) {
        auto l = all();
        return int(std::count(l.begin(), l.end(), line));
    }

private:
    // Never destroyed: detached reader threads may still log while the
    // process exits.
    static std::mutex& m() {
        static auto* mutex = new std::mutex;
        return *mutex;
    }
    static std::vector<std::string>& lines() {
        static auto* v = new std::vector<std::string>;
        return *v;
    }
    static void record(const Logger&, Logger::Level, const std::string& line) {
        std::lock_guard g(m());
        lines().push_back(line);
    }
};

}  // namespace tsl::test
