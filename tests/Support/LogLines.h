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
    static std::mutex& m() {
        static std::mutex mutex;
        return mutex;
    }
    static std::vector<std::string>& lines() {
        static std::vector<std::string> v;
        return v;
    }
    static void record(const Logger&, Logger::Level, const std::string& line) {
        std::lock_guard g(m());
        lines().push_back(line);
    }
};

}  // namespace tsl::test
