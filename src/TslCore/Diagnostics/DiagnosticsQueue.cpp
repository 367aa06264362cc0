#include "TslCore/Diagnostics/DiagnosticsQueue.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <nlohmann/json.hpp>

#include "TslCore/Diagnostics/DiagnosticsGuard.h"
#include "TslCore/Diagnostics/DiagnosticsSanitizer.h"
#include "TslCore/Support/AtomicFile.h"
#include "TslCore/Support/BoundedFile.h"
#include "TslCore/Support/JSONFields.h"

namespace tsl {

using nlohmann::json;
namespace fs = std::filesystem;

template <class V, JSONFields::Is<DiagnosticsQueue::InFlight> R>
void fields(V& v, R& r) {
    v("id", r.id);
    v("count", r.count);
}

namespace {

constexpr const char* eventsFile = "events.json";
constexpr const char* batchFile = "batch.json";
constexpr const char* reportsFile = "reports.json";

// Far above a full queue (its events are bounded in count and size).
constexpr size_t queueFileLimit = 16 << 20;

std::optional<json> readJSON(const fs::path& path) {
    const auto text = BoundedFile::bytesOf(path, queueFileLimit);
    if (!text) return std::nullopt;
    json value = json::parse(*text, nullptr, false);
    if (value.is_discarded()) return std::nullopt;
    return value;
}


// Text that is not UTF-8 cannot be written as JSON; such a list is not
// written at all.
template <typename T>
std::optional<std::string> encoded(const T& value) {
    try {
        return json(value).dump();
    } catch (const json::exception&) {
        return std::nullopt;
    }
}

// Every folder that `folder` lacks, down from the first missing one, is made
// owner-only: the user's diagnostics may sit below folders made here.
void makeQueueFolders(const fs::path& folder) {
    std::vector<fs::path> missing;
    for (fs::path at = folder; !at.empty(); at = at.parent_path()) {
        struct stat st {};
        if (::lstat(at.c_str(), &st) == 0 || errno != ENOENT) break;
        missing.push_back(at);
        if (at.parent_path() == at) break;
    }
    for (auto it = missing.rbegin(); it != missing.rend(); ++it)
        if (::mkdir(it->c_str(), 0700) == 0) ::chmod(it->c_str(), 0700);  // whatever the umask took away
}

DiagnosticsQueue::InFlight decodeInFlight(const json& j) { return JSONFields::decode<DiagnosticsQueue::InFlight>(j); }

}  // namespace

DiagnosticsQueue::DiagnosticsQueue(fs::path folder, std::vector<std::string> personal)
    : _folder(std::move(folder)), _personal(std::move(personal)) {
    // A writer killed between creating its temporary file and renaming it
    // leaves the file behind.
    sweepAtomicTemporaries(_folder.string(), {"events.json", "batch.json", "reports.json"});
}

int64_t DiagnosticsQueue::currentSeconds() {
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

void DiagnosticsQueue::append(const DiagnosticEvent& event, int64_t now) {
    const auto cleaned = DiagnosticsSanitizer::sanitize(event);
    if (!cleaned || !DiagnosticsGuard::check(*cleaned, _personal, now)) return;
    std::lock_guard guard(_lock);
    auto list = readEvents();
    const bool trimmed = list.size() >= maxEvents;
    list.push_back(*cleaned);
    if (trimmed) {
        list.erase(list.begin(), list.end() - maxEvents);
        remove(batchFile);  // the head moved: an in-flight count no longer fits
    }
    write(eventsFile, encoded(list));
}

std::vector<DiagnosticEvent> DiagnosticsQueue::events() {
    std::lock_guard guard(_lock);
    return readEvents();
}

void DiagnosticsQueue::dropFirst(size_t n) {
    std::lock_guard guard(_lock);
    auto list = readEvents();
    list.erase(list.begin(), list.begin() + std::min(n, list.size()));
    write(eventsFile, encoded(list));
    remove(batchFile);
}

void DiagnosticsQueue::clearEvents() {
    std::lock_guard guard(_lock);
    remove(eventsFile);
    remove(batchFile);
}

std::optional<DiagnosticsQueue::InFlight> DiagnosticsQueue::inFlight() {
    std::lock_guard guard(_lock);
    const auto value = readJSON(file(batchFile));
    if (!value) return std::nullopt;
    try {
        return decodeInFlight(*value);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

void DiagnosticsQueue::setInFlight(const InFlight& record) {
    std::lock_guard guard(_lock);
    write(batchFile, encoded(JSONFields::toJSON(record)));
}

std::vector<ProblemReport> DiagnosticsQueue::reports() {
    std::lock_guard guard(_lock);
    return readReports().value_or(std::vector<ProblemReport>{});
}

void DiagnosticsQueue::enqueue(const ProblemReport& report) {
    std::lock_guard guard(_lock);
    auto list = readReports().value_or(std::vector<ProblemReport>{});
    std::erase_if(list, [&](const ProblemReport& r) { return r.id == report.id; });
    list.push_back(report);
    if (list.size() > maxReports) list.erase(list.begin(), list.end() - maxReports);
    write(reportsFile, encoded(list));
}

void DiagnosticsQueue::removeReport(const std::optional<std::string>& id) {
    std::lock_guard guard(_lock);
    auto list = readReports().value_or(std::vector<ProblemReport>{});
    std::erase_if(list, [&](const ProblemReport& r) { return r.id == id; });
    write(reportsFile, encoded(list));
}

void DiagnosticsQueue::stripReportDiagnostics() {
    std::lock_guard guard(_lock);
    auto list = readReports();
    if (!list) return;
    for (auto& report : *list) report.diagnostics.reset();
    write(reportsFile, encoded(*list));
}

std::vector<DiagnosticEvent> DiagnosticsQueue::readEvents() const {
    const auto value = readJSON(file(eventsFile));
    if (!value) return {};
    try {
        return value->get<std::vector<DiagnosticEvent>>();
    } catch (const std::exception&) {
        return {};
    }
}

std::optional<std::vector<ProblemReport>> DiagnosticsQueue::readReports() const {
    const auto value = readJSON(file(reportsFile));
    if (!value) return std::nullopt;
    try {
        return value->get<std::vector<ProblemReport>>();
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

// Atomic, so that a reader, or a process killed mid-write, sees the old
// file or the new one, never a part; storage reports no failure.
void DiagnosticsQueue::write(const char* name, const std::optional<std::string>& text) const {
    makeQueueFolders(_folder);
    ::chmod(_folder.c_str(), 0700);  // it may have existed with a wider mode
    if (!text) return;
    try {
        writeFileAtomically(file(name).string(), *text, 0600);
    } catch (const Error&) {
    }
}

void DiagnosticsQueue::remove(const char* name) const { ::unlink(file(name).c_str()); }

}  // namespace tsl
