// The built `tessel diag` on real files and folders, and a queue that writers
// are killed in the middle of.
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <nlohmann/json.hpp>
#include <random>
#include <thread>

#include "Support/ChildProcess.h"
#include "Support/TempDir.h"
#include "Support/TestPaths.h"
#include "TslCore/Diagnostics/DiagnosticEvent.h"
#include "TslCore/Diagnostics/DiagnosticsQueue.h"
#include "TslCore/Diagnostics/DiagnosticsSchemaFile.h"
#include "TslCore/Diagnostics/SchemaNode.h"

using namespace tsl;
using nlohmann::json;
namespace fs = std::filesystem;

namespace {

const std::string& tesselExe = tsl::test::tesselExecutable();
const int64_t now = 1790000000;
const std::string nowText = std::to_string(now);

struct DiagRun {
    std::optional<int> status;
    std::string out, err;
};

DiagRun runDiag(const std::vector<std::string>& args) {
    test::ChildProcess child(tesselExe, args);
    DiagRun run;
    run.status = child.wait();
    run.out = child.standardOutput();
    run.err = child.standardError();
    return run;
}

fs::path writeDiagFile(const fs::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

json setupEvent(int64_t at = now) { return {{"type", "setup"}, {"at", at}, {"step", "rosetta"}, {"status", "ok"}}; }

json batch(const json& events) {
    return {{"schema", 1},
            {"batch", "AAAAAAAAAAAAAAAAAAAAAA"},
            {"app", {{"version", "0.9.0-beta.6"}, {"build", "2026.10.7"}}},
            {"consent", {{"diagnostics", true}, {"version", "2026-10-05"}}},
            {"events", events}};
}

}  // namespace

TEST(TesselDiag, SchemaPrintsTheGeneratedDocument) {
    for (const bool compact : {false, true}) {
        const auto run = runDiag(compact ? std::vector<std::string>{"diag", "schema", "--json"}
                                         : std::vector<std::string>{"diag", "schema"});
        ASSERT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(SchemaNode::parseFile(run.out).defs, DiagnosticsSchemaFile::defs());
    }
}

TEST(TesselDiag, ValidatePrintsTheFirstProblem) {
    test::TempDir dir;
    const auto good = writeDiagFile(dir / "good.json", batch(json::array({setupEvent()})).dump());
    auto run = runDiag({"diag", "validate", good, "--now", nowText});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "valid\n");

    const auto late =
        writeDiagFile(dir / "late.json", batch(json::array({setupEvent(), setupEvent(now + 301)})).dump());
    run = runDiag({"diag", "validate", late, "--now", nowText});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "events[1].at: out of range\n");
    run = runDiag({"diag", "validate", late, "--now", nowText, "--json"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(json::parse(run.out), (json{{"valid", false}, {"field", "events[1].at"}, {"reason", "out of range"}}));

    const auto report = writeDiagFile(
        dir / "report.json", R"({"app":{"version":"1","build":"2026.1.1"},"category":"other","text":" \u0001 "})");
    run = runDiag({"diag", "validate", "--report", report});
    EXPECT_EQ(run.out, "text: must be 1–5000 characters after cleaning\n");

    run = runDiag({"diag", "validate", (dir / "missing.json").string()});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "tessel diag validate: " + (dir / "missing.json").string() + ": No such file or directory\n");
}

TEST(TesselDiag, QueueRoundTripForASender) {
    test::TempDir dir;
    const std::string q = (dir / "queue").string();
    const auto event = writeDiagFile(dir / "event.json", setupEvent().dump());
    for (int i = 0; i < 3; ++i)
        ASSERT_EQ(runDiag({"diag", "queue", "--dir", q, "add", event, "--now", nowText}).status, 0);
    const auto personal = writeDiagFile(dir / "personal.json", setupEvent(now - 36000000).dump());
    auto run = runDiag({"diag", "queue", "--dir", q, "add", personal, "--now", nowText});
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("refused"), std::string::npos);
    EXPECT_EQ(
        runDiag({"diag", "queue", "--dir", q, "add", writeDiagFile(dir / "bad.json", "{}"), "--now", nowText}).status,
        1);

    run = runDiag({"diag", "queue", "--dir", q, "next", "--json", "--now", nowText});
    ASSERT_EQ(run.status, 0) << run.err;
    const json next = json::parse(run.out);
    EXPECT_EQ(next["consumed"], 3);
    const std::string id = next["id"];
    EXPECT_EQ(json::parse(next["body"].get<std::string>())["events"].size(), 3u);
    // Until it is acknowledged, the batch keeps its identifier.
    run = runDiag({"diag", "queue", "--dir", q, "next", "--json", "--now", nowText});
    EXPECT_EQ(json::parse(run.out)["id"], id);

    EXPECT_EQ(runDiag({"diag", "queue", "--dir", q, "delivered", "other"}).status, 1);
    // One identifier in 64 begins with "-": an identifier still, not an option.
    run = runDiag({"diag", "queue", "--dir", q, "delivered", "-QBnhFdHmWjE54_DwDLSlA"});
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("no batch in flight with the identifier -QBnhFdHmWjE54_DwDLSlA"), std::string::npos);
    run = runDiag({"diag", "queue", "--dir", q, "delivered", id});
    EXPECT_EQ(run.status, 0) << run.err;
    run = runDiag({"diag", "queue", "--dir", q, "list", "--json"});
    EXPECT_EQ(json::parse(run.out), (json{{"events", json::array()}, {"reports", json::array()}}));
    run = runDiag({"diag", "queue", "--dir", q, "list"});
    EXPECT_EQ(run.out, "0 events\n0 reports\n");
}

TEST(TesselDiag, QueueSurvivesWritersKilledAtAnyMoment) {
    test::TempDir dir;
    const fs::path folder = dir / "queue";
    {
        DiagnosticsQueue queue(folder, {});
        for (int64_t i = 0; i < 300; ++i)
            queue.append(json(setupEvent(now - i)).get<DiagnosticEvent>(), now);  // a long file: a long write
    }
    const auto event = writeDiagFile(dir / "event.json", setupEvent().dump());
    const std::vector<std::string> args{"diag", "queue", "--dir", folder.string(), "add", event.string(), "--now", nowText};

    // How long one whole append takes here; kills fall anywhere inside it.
    const auto t0 = std::chrono::steady_clock::now();
    ASSERT_EQ(runDiag(args).status, 0);
    const auto whole = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - t0);
    std::mt19937 random(20261123);
    std::uniform_int_distribution<int64_t> moment(0, whole.count() * 5 / 4);

    size_t count = 301, completed = 0;
    for (int round = 0; round < 80; ++round) {
        {
            test::ChildProcess child(tesselExe, args);
            std::this_thread::sleep_for(std::chrono::microseconds(moment(random)));
            if (child.wait(std::chrono::milliseconds(0))) ++completed;
        }  // killed here unless it has ended
        std::ifstream in(folder / "events.json", std::ios::binary);
        const json list = json::parse(in, nullptr, false);
        ASSERT_FALSE(list.is_discarded()) << "round " << round;
        const auto events = list.get<std::vector<DiagnosticEvent>>();
        ASSERT_TRUE(events.size() == count || events.size() == count + 1) << events.size() << " after " << count;
        count = events.size();
    }
    EXPECT_GT(count, 301u);  // some writers got through
    std::cout << "writers finished " << completed << " of 80; list at " << count << " events\n";
}
