// Batches and reports against the generated schema and the rules it cannot state.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "TslCore/Diagnostics/DiagnosticsBatch.h"
#include "TslCore/Diagnostics/DiagnosticsBatcher.h"
#include "TslCore/Diagnostics/DiagnosticsSchemaFile.h"
#include "TslCore/Diagnostics/DiagnosticsValidator.h"
#include "TslCore/Diagnostics/SchemaRegex.h"
#include "TslCore/Diagnostics/DiagnosticsTestEvents.h"

using namespace tsl;
using namespace tsl::test;
using nlohmann::json;

namespace {

json batchJSON(std::vector<DiagnosticEvent> events) {
    return DiagnosticsBatch{1, "AAAAAAAAAAAAAAAAAAAAAA", appPart(), {}, std::move(events)};
}

std::string batchProblem(const std::string& body, int64_t now = diagNow) {
    try {
        DiagnosticsValidator::validateBatch(body, now);
    } catch (const DiagnosticsValidator::Problem& p) {
        return p.description();
    }
    return "valid";
}
std::string batchProblem(const json& body, int64_t now = diagNow) { return batchProblem(body.dump(), now); }

std::string reportProblem(const json& body) {
    try {
        DiagnosticsValidator::validateReport(body.dump(), diagNow);
    } catch (const DiagnosticsValidator::Problem& p) {
        return p.description();
    }
    return "valid";
}

json report(std::string text) {
    return {{"app", appPart()}, {"category", "app"}, {"text", std::move(text)}};
}

}  // namespace

TEST(DiagnosticsValidator, EveryKindOfEventPassesInItsExactJSONForm) {
    const json body = batchJSON({appEvent(), sessionEvent(), setupEvent()});
    EXPECT_EQ(batchProblem(body), "valid");
    EXPECT_EQ(body["events"][0]["bundleId"], "com.example.editor");
    EXPECT_EQ(body["events"][0]["type"], "app");
    EXPECT_EQ(body["events"][1]["mac"]["ramGB"], 32);
    EXPECT_EQ(body["events"][2]["step"], "guest_tools");
    // Decoding gives back the same records.
    EXPECT_EQ(body.get<DiagnosticsBatch>().events,
              (std::vector<DiagnosticEvent>{appEvent(), sessionEvent(), setupEvent()}));
    EXPECT_THROW((json{{"type", "other"}, {"at", 1}}.get<DiagnosticEvent>()), std::exception);
    // A number past 64 bits is no event, not a wrapped negative one.
    json huge = json(sessionEvent());
    huge["mac"]["ramGB"] = UINT64_MAX;
    EXPECT_THROW(huge.get<DiagnosticEvent>(), std::exception);
}

TEST(DiagnosticsValidator, BodySizeAndShape) {
    json body = batchJSON({appEvent()});
    std::string text = body.dump();
    text.insert(text.size() - 1, std::string(65536 - text.size(), ' '));
    ASSERT_EQ(text.size(), 65536u);
    EXPECT_EQ(batchProblem(text), "valid");
    EXPECT_EQ(batchProblem(text + " "), "body: larger than 64 KiB");
    EXPECT_EQ(batchProblem(std::string("[]")), "body: not a JSON object");
    EXPECT_EQ(batchProblem(std::string("{\"schema\":")), "body: not a JSON object");
    EXPECT_EQ(batchProblem(batchJSON({})), "events: fewer than 1 items");
    body["consent"]["diagnostics"] = false;
    EXPECT_EQ(batchProblem(body), "consent.diagnostics: must be true");
}

TEST(DiagnosticsValidator, EventProblemsNameTheirField) {
    json body = batchJSON({appEvent()});
    body["events"][0]["path"] = "x";
    EXPECT_EQ(batchProblem(body), "events[0].path: not allowed");
    body = batchJSON({appEvent()});
    body["events"][0]["type"] = "crash";
    EXPECT_EQ(batchProblem(body), "events[0].type: unknown");
    body = batchJSON({appEvent()});
    body["events"][0]["crash"]["hash"] = "ABC";
    EXPECT_EQ(batchProblem(body), "events[0].crash.hash: outside its pattern");
    body = batchJSON({sessionEvent()});
    body["events"][0]["stream"]["fpsMin"] = 300;
    EXPECT_EQ(batchProblem(body), "events[0].stream.fpsMin: not a number in 0.0…240.0");
}

TEST(DiagnosticsValidator, EventTimesAndSleepWakeRule) {
    EXPECT_EQ(batchProblem(batchJSON({appEvent("com.example.editor", diagNow + 300)})), "valid");
    EXPECT_EQ(batchProblem(batchJSON({appEvent("com.example.editor", diagNow + 301)})), "events[0].at: out of range");
    EXPECT_EQ(batchProblem(batchJSON({setupEvent(diagNow - 34560000)})), "valid");
    EXPECT_EQ(batchProblem(batchJSON({setupEvent(diagNow - 34560001)})), "events[0].at: out of range");
    auto session = sessionEvent();
    std::get<SessionMetrics>(session.payload).sleepWake = SessionMetrics::SleepWake{2, 3};
    EXPECT_EQ(batchProblem(batchJSON({setupEvent(), session})), "events[1].sleepWake.ok: more than attempts");
    // One event checked alone, at the caller's field.
    const json single = sessionEvent(diagNow + 400);
    try {
        DiagnosticsValidator::event(single, diagNow, "event");
        FAIL();
    } catch (const DiagnosticsValidator::Problem& p) {
        EXPECT_EQ(p.description(), "event.at: out of range");
    }
}

TEST(DiagnosticsValidator, ReportTextCountsAfterCleaning) {
    EXPECT_EQ(reportProblem(report("The window stays black.")), "valid");
    EXPECT_EQ(reportProblem(report("\x01\x02  \r\n\t \u200e")), "text: must be 1–5000 characters after cleaning");
    EXPECT_EQ(reportProblem(report(std::string(6000, 'x'))), "text: must be 1–5000 characters after cleaning");
    EXPECT_EQ(reportProblem(report("  \n" + std::string(5000, 'x') + " \t")), "valid");
    EXPECT_EQ(reportProblem(report(std::string(20001, 'x'))), "text: longer than 20000");
    EXPECT_EQ(DiagnosticsValidator::cleanReportText(" \u202Eab\rc\td\u2069\n "), "abc\td");

    json withEvents = report("Slow.");
    withEvents["diagnostics"] = {{"schema", 1}, {"events", {sessionEvent(diagNow + 1000)}}};
    EXPECT_EQ(reportProblem(withEvents), "diagnostics.events[0].at: out of range");
    withEvents["id"] = "not-a-uuid";
    EXPECT_EQ(reportProblem(withEvents), "id: outside its pattern");
    const json diagnostics = {{"schema", 2}, {"events", {setupEvent()}}};
    try {
        DiagnosticsValidator::validateReportDiagnostics(&diagnostics, diagNow);
        FAIL();
    } catch (const DiagnosticsValidator::Problem& p) {
        EXPECT_EQ(p.description(), "diagnostics.schema: must be 1");
    }
    const json badApp = {{"version", "1"}, {"build", "x"}};
    EXPECT_THROW(DiagnosticsValidator::appPart(&badApp), DiagnosticsValidator::Problem);
    EXPECT_THROW(DiagnosticsValidator::appPart(nullptr), DiagnosticsValidator::Problem);
}

TEST(DiagnosticsBatch, IdentifiersAndCrashDigests) {
    const auto id = DiagnosticsBatch::newID();
    EXPECT_EQ(id.size(), 22u);
    EXPECT_TRUE(SchemaRegex::matches("^[A-Za-z0-9_-]{22}$", id));
    EXPECT_NE(id, DiagnosticsBatch::newID());
    EXPECT_EQ(CrashSignature::make("EXC_CRASH", std::nullopt, {}).hash,
              "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(CrashSignature::make("EXC_CRASH", std::nullopt, {"a", "b"}).hash,
              CrashSignature::make("EXC_CRASH", std::nullopt, {"a\nb"}).hash);
}
