// The queue on a real folder, the batcher's budgets and problem reports.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "Support/TempDir.h"
#include "TslCore/Diagnostics/DiagnosticsBatcher.h"
#include "TslCore/Diagnostics/DiagnosticsGuard.h"
#include "TslCore/Diagnostics/DiagnosticsQueue.h"
#include "TslCore/Diagnostics/DiagnosticsTestEvents.h"
#include "TslCore/Diagnostics/DiagnosticsValidator.h"

using namespace tsl;
using namespace tsl::test;
using nlohmann::json;
namespace fs = std::filesystem;

namespace {

const std::vector<std::string> personal{"jdoe", "Jane Doe", "/Users/jdoe"};

mode_t queueModeOf(const fs::path& path) {
    struct stat st {};
    ::stat(path.c_str(), &st);
    return st.st_mode & 07777;
}

void writeQueueFile(const fs::path& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }

DiagnosticEvent numbered(int64_t i) { return setupEvent(diagNow - 1000 + i); }

std::string_view view(const Bytes& data) { return {reinterpret_cast<const char*>(data.data()), data.size()}; }

ProblemReport reportWith(std::optional<std::string> id, std::string text = "It froze.") {
    return ProblemReport(std::move(id), ProblemReport::Category::app, text, appPart(), std::nullopt);
}

}  // namespace

TEST(DiagnosticsQueue, AppendKeepsTheNewest500AndForgetsTheInFlightBatchOnlyWhenTheHeadMoves) {
    TempDir dir;
    DiagnosticsQueue queue(dir / "diag", personal);
    for (int64_t i = 0; i < 499; ++i) queue.append(numbered(i), diagNow);
    queue.setInFlight({"AAAAAAAAAAAAAAAAAAAAAA", 10});
    queue.append(numbered(499), diagNow);  // the 500th
    EXPECT_EQ(queue.inFlight(), (DiagnosticsQueue::InFlight{"AAAAAAAAAAAAAAAAAAAAAA", 10}));
    queue.append(numbered(500), diagNow);  // the 501st
    EXPECT_FALSE(queue.inFlight());
    const auto events = queue.events();
    ASSERT_EQ(events.size(), 500u);
    EXPECT_EQ(events.front(), numbered(1));
    EXPECT_EQ(events.back(), numbered(500));
}

TEST(DiagnosticsQueue, AppendStoresOnlyCleanedAndScreenedEvents) {
    TempDir dir;
    DiagnosticsQueue queue(dir.path(), personal);
    auto session = sessionEvent();
    std::get<SessionMetrics>(session.payload).stream = SessionMetrics::Stream{59.96, std::nullopt, std::nullopt, std::nullopt};
    queue.append(session, diagNow);
    queue.append(appEvent("com.jdoe.secret"), diagNow);     // the guard refuses it
    queue.append(appEvent("no bundle id"), diagNow);        // the sanitizer drops it
    queue.append(appEvent("com.example.x", 1), diagNow);   // far too old
    const auto events = queue.events();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(std::get<SessionMetrics>(events[0].payload).stream->fpsMedian, 60.0);
}

TEST(DiagnosticsQueue, DropClearAndDamagedFiles) {
    TempDir dir;
    DiagnosticsQueue queue(dir.path(), personal);
    for (int64_t i = 0; i < 3; ++i) queue.append(numbered(i), diagNow);
    queue.setInFlight({"x", 2});
    queue.dropFirst(1);
    EXPECT_EQ(queue.events(), (std::vector<DiagnosticEvent>{numbered(1), numbered(2)}));
    EXPECT_FALSE(queue.inFlight());
    queue.dropFirst(10);
    EXPECT_TRUE(queue.events().empty());
    EXPECT_EQ(json::parse(std::ifstream(dir / "events.json")), json::array());

    writeQueueFile(dir / "events.json", "[{\"type\":\"setup\",\"at\":");
    EXPECT_TRUE(queue.events().empty());
    writeQueueFile(dir / "events.json", R"([{"type":"setup","at":1,"step":"ready","status":"ok"},{"type":"nope"}])");
    EXPECT_TRUE(queue.events().empty());  // not decodable as a whole
    queue.append(numbered(7), diagNow);
    EXPECT_EQ(queue.events(), std::vector<DiagnosticEvent>{numbered(7)});
    writeQueueFile(dir / "batch.json", R"({"id":"x"})");
    EXPECT_FALSE(queue.inFlight());

    queue.setInFlight({"y", 1});
    queue.clearEvents();
    EXPECT_FALSE(fs::exists(dir / "events.json"));
    EXPECT_FALSE(fs::exists(dir / "batch.json"));
    queue.clearEvents();  // nothing there: no failure either
}

TEST(DiagnosticsQueue, ModesAreMendedWhenWider) {
    TempDir dir;
    const fs::path folder = dir / "a" / "b";
    DiagnosticsQueue queue(folder, personal);
    const mode_t umask = ::umask(022);
    queue.append(numbered(0), diagNow);
    ::umask(umask);
    EXPECT_EQ(queueModeOf(dir / "a"), 0700u);  // the folders made on the way too
    EXPECT_EQ(queueModeOf(folder), 0700u);
    EXPECT_EQ(queueModeOf(folder / "events.json"), 0600u);
    ::chmod(folder.c_str(), 0755);
    ::chmod((folder / "events.json").c_str(), 0644);
    writeQueueFile(folder / "reports.json", "[]");
    ::chmod((folder / "reports.json").c_str(), 0666);
    queue.append(numbered(1), diagNow);
    queue.enqueue(reportWith(std::nullopt));
    queue.setInFlight({"z", 1});
    EXPECT_EQ(queueModeOf(folder), 0700u);
    EXPECT_EQ(queueModeOf(folder / "events.json"), 0600u);
    EXPECT_EQ(queueModeOf(folder / "reports.json"), 0600u);
    EXPECT_EQ(queueModeOf(folder / "batch.json"), 0600u);
    // Nothing is left behind by the atomic writes.
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), fs::directory_iterator()), 3);
}

TEST(DiagnosticsQueue, StorageFailuresStaySilent) {
    DiagnosticsQueue queue("/proc/no-such-place/diag", personal);
    queue.append(numbered(0), diagNow);
    queue.enqueue(reportWith(std::nullopt));
    queue.dropFirst(1);
    EXPECT_TRUE(queue.events().empty());
    EXPECT_TRUE(queue.reports().empty());

    // A text that is not UTF-8 cannot be encoded: nothing is written, and
    // the stored list stays as it was.
    TempDir dir;
    DiagnosticsQueue real(dir.path(), personal);
    real.enqueue(reportWith("A"));
    EXPECT_NO_THROW(real.enqueue(reportWith("B", "bad \xff\xfe")));
    ASSERT_EQ(real.reports().size(), 1u);
    EXPECT_EQ(real.reports().front().id, "A");
}

TEST(DiagnosticsQueue, ReportsReplaceByIdentifierAndKeepTheNewest20) {
    TempDir dir;
    DiagnosticsQueue queue(dir.path(), personal);
    queue.enqueue(reportWith("A", "first"));
    queue.enqueue(reportWith(std::nullopt));
    queue.enqueue(reportWith("B"));
    queue.enqueue(reportWith("A", "second"));
    auto reports = queue.reports();
    ASSERT_EQ(reports.size(), 3u);
    EXPECT_EQ(reports.back().text, "second");
    queue.removeReport(std::nullopt);
    EXPECT_EQ(queue.reports().size(), 2u);
    for (int i = 0; i < 21; ++i) queue.enqueue(reportWith("R" + std::to_string(i)));
    reports = queue.reports();
    ASSERT_EQ(reports.size(), 20u);
    EXPECT_EQ(reports.front().id, "R1");

    queue.enqueue(ProblemReport("W", ProblemReport::Category::crash, "x", appPart(), std::vector{setupEvent()}));
    EXPECT_TRUE(queue.reports().back().diagnostics);
    queue.stripReportDiagnostics();
    for (const auto& r : queue.reports()) EXPECT_FALSE(r.diagnostics);
    writeQueueFile(dir / "reports.json", "damaged");
    queue.stripReportDiagnostics();
    std::ifstream in(dir / "reports.json");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "damaged");
}

TEST(ProblemReport, TextBoundAndOptionalDiagnostics) {
    const std::string text(6000, 'x');
    const ProblemReport report(std::nullopt, ProblemReport::Category::other, text, appPart(), std::vector<DiagnosticEvent>{});
    EXPECT_EQ(report.text.size(), 5000u);
    EXPECT_FALSE(report.diagnostics);
    EXPECT_FALSE(json::parse(view(report.encoded())).contains("diagnostics"));
    EXPECT_EQ(ProblemReport::clip("é" + std::string(5000, 'x')), "é" + std::string(4999, 'x'));
    EXPECT_EQ(ProblemReport::length("e\u0301"), 2u);
    const ProblemReport full("123E4567-E89B-42D3-A456-426614174000", ProblemReport::Category::crash, "Crashed at launch.",
                             appPart(), std::vector{appEvent()});
    EXPECT_NO_THROW(DiagnosticsValidator::validateReport(view(full.encoded()), diagNow));
    EXPECT_EQ(category(ReportTopic::typingOrMouse), ProblemReport::Category::app);
    EXPECT_EQ(tag(ReportTopic::windows), "[Windows look wrong]");
    EXPECT_FALSE(tag(ReportTopic::speed));
}

TEST(DiagnosticsBatcher, BudgetsAndConsumedEvents) {
    const std::string id = "AAAAAAAAAAAAAAAAAAAAAA";
    EXPECT_FALSE(DiagnosticsBatcher::next({}, appPart(), diagNow, id, personal));

    std::vector<DiagnosticEvent> many;
    for (int64_t i = 0; i < 300; ++i) many.push_back(numbered(i));
    auto next = DiagnosticsBatcher::next(many, appPart(), diagNow, id, personal);
    ASSERT_TRUE(next);
    EXPECT_EQ(next->consumed, 200u);
    EXPECT_EQ(next->batch.events.size(), 200u);
    EXPECT_EQ(view(next->data), json(next->batch).dump());
    EXPECT_NO_THROW(DiagnosticsValidator::validateBatch(view(next->data), diagNow));
    EXPECT_NO_THROW(DiagnosticsGuard::check(view(next->data), personal));

    // Large session events reach the byte budget before 200.
    std::vector<DiagnosticEvent> large(200, sessionEvent());
    next = DiagnosticsBatcher::next(large, appPart(), diagNow, id, personal);
    ASSERT_TRUE(next);
    EXPECT_LT(next->consumed, 200u);
    EXPECT_EQ(next->batch.events.size(), next->consumed);
    EXPECT_LE(next->data.size(), 65024u);
    auto oneMore = next->batch;
    oneMore.events.push_back(sessionEvent());
    EXPECT_GT(DiagnosticsBatcher::encode(oneMore).size(), 65024u);

    // A first event the guard now refuses is consumed; the good ones go.
    std::vector<DiagnosticEvent> mixed{appEvent("com.jdoe.app"), numbered(1), numbered(2)};
    next = DiagnosticsBatcher::next(mixed, appPart(), diagNow, id, personal);
    EXPECT_EQ(next->consumed, 3u);
    EXPECT_EQ(next->batch.events, (std::vector<DiagnosticEvent>{numbered(1), numbered(2)}));

    // Only refused events: an empty batch that consumes them all.
    next = DiagnosticsBatcher::next({appEvent("com.jdoe.app")}, appPart(), diagNow, id, personal);
    EXPECT_TRUE(next->batch.events.empty());
    EXPECT_EQ(next->consumed, 1u);
    EXPECT_EQ(view(next->data), json(next->batch).dump());
}

TEST(DiagnosticsBatcher, AnEventTooLargeAloneLeavesTheQueue) {
    // Only a budget this small makes one schema-valid event too large, so the
    // batch's own fields are blown up instead: an app part near the limit.
    DiagnosticsBatch::AppPart huge{std::string(65000, 'v'), "2026.10.7"};
    const auto next = DiagnosticsBatcher::next({numbered(0), numbered(1)}, huge, diagNow, "AAAAAAAAAAAAAAAAAAAAAA", personal);
    ASSERT_TRUE(next);
    EXPECT_TRUE(next->batch.events.empty());
    EXPECT_EQ(next->consumed, 1u);
}
