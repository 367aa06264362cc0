#pragma once
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "TslCore/Diagnostics/DiagnosticEvent.h"
#include "TslCore/Diagnostics/ProblemReport.h"

namespace tsl {

// The on-disk waiting room: a private folder with "events.json",
// "batch.json" and "reports.json". Never sends anything, and never reports a
// storage failure: a failed write leaves the older file, a damaged file reads
// as empty. One lock per queue object; nothing guards against another process
// beyond each write being atomic.
class DiagnosticsQueue {
public:
    struct InFlight {
        std::string id;
        int64_t count = 0;
        bool operator==(const InFlight&) const = default;
    };

    static constexpr size_t maxEvents = 500;
    static constexpr size_t maxReports = 20;

    DiagnosticsQueue(std::filesystem::path folder, std::vector<std::string> personal);

    // Sanitizes, screens and stores one event; `now` is seconds since 1970.
    void append(const DiagnosticEvent& event, int64_t now = currentSeconds());
    std::vector<DiagnosticEvent> events();
    void dropFirst(size_t n);
    void clearEvents();
    std::optional<InFlight> inFlight();
    void setInFlight(const InFlight& record);

    std::vector<ProblemReport> reports();
    void enqueue(const ProblemReport& report);
    void removeReport(const std::optional<std::string>& id);
    void stripReportDiagnostics();

    const std::filesystem::path& folder() const { return _folder; }
    static int64_t currentSeconds();

private:
    std::filesystem::path file(const char* name) const { return _folder / name; }
    std::vector<DiagnosticEvent> readEvents() const;
    std::optional<std::vector<ProblemReport>> readReports() const;
    // Writes nothing when `text` is absent: the value could not be encoded.
    void write(const char* name, const std::optional<std::string>& text) const;
    void remove(const char* name) const;

    const std::filesystem::path _folder;
    const std::vector<std::string> _personal;
    std::mutex _lock;
};

}  // namespace tsl
