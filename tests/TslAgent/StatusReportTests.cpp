// The status report: the guest tools' file within its limits, the live
// corrections from preferences and fdesetup with its cache, and the record
// for both kinds of run.
#include <gtest/gtest.h>

#include "Platform/Sim/Desktop.h"
#include "Support/Files.h"
#include "Support/TempDir.h"
#include "TslAgent/GuestLiveSettings.h"
#include "TslAgent/StatusReport.h"

using namespace tsl;
using namespace std::chrono_literals;
using Clock = std::chrono::system_clock;

namespace {

// The FileVault answer is cached process-wide; each test starts an hour after
// the last, so no answer of an earlier test is fresh.
Clock::time_point freshTime() {
    static Clock::time_point next = Clock::now() + 24h;
    next += 1h;
    return next;
}

const std::string fullReport =
    R"({"schema":1,"installedAt":"2026-01-02T03:04:05Z","toolsVersion":"1.2","rosetta":true,"autoUpdatesOff":true,)"
    R"("sleepOff":false,"fileVault":false,"autoLoginUser":"filed","consoleUser":"console"})";

struct ReportGuest {
    test::TempDir dir;
    std::shared_ptr<Sim::Desktop> desktop = Sim::Desktop::make();
    PlatformServices platform = desktop->services();
    std::filesystem::path report = dir / "provision-status.json";

    void fdesetupPrints(std::string text) {
        desktop->scriptChild(GuestLiveSettings::fdesetupPath, [text](const std::vector<std::string>& args) {
            EXPECT_EQ(args, (std::vector<std::string>{"status"}));
            return System::ChildResult{.exitStatus = 1, .standardOutput = Bytes(text.begin(), text.end())};
        });
    }
    void autoLogin(std::optional<PlatformValue> value, Preferences::Host host = Preferences::Host::current) {
        platform.preferences->setValue("autoLoginUser", value, GuestLiveSettings::loginWindowDomain,
                                       Preferences::User::any, host);
    }
    int fdesetupRuns() const { return desktop->childRuns(GuestLiveSettings::fdesetupPath); }
};

}  // namespace

TEST(StatusReport, ReportFileLimitsAndDecoding) {
    ReportGuest guest;
    auto read = [&] { return StatusReport::provisionReport(guest.report, false, guest.platform); };
    EXPECT_EQ(read(), std::nullopt);  // no file

    test::writeFile(guest.report, fullReport);
    auto report = read();
    ASSERT_TRUE(report);
    EXPECT_EQ(report->schema, 1);
    EXPECT_EQ(report->toolsVersion, "1.2");
    EXPECT_TRUE(report->rosetta);
    EXPECT_EQ(report->autoLoginUser, "filed");  // not live: the file's values stand

    // The size limit is on the whole file, white space included.
    std::string padded = fullReport;
    padded.resize(16383, ' ');
    test::writeFile(guest.report, padded);
    EXPECT_TRUE(read());
    padded.push_back(' ');
    test::writeFile(guest.report, padded);
    EXPECT_EQ(read(), std::nullopt);
    test::writeFile(guest.report, fullReport + std::string(1 << 20, ' '));
    EXPECT_EQ(read(), std::nullopt);

    // A missing required key or a wrong type fails the whole report; optional keys may all be absent.
    test::writeFile(guest.report, R"({"schema":1,"rosetta":true,"autoUpdatesOff":true,"fileVault":false})");
    EXPECT_EQ(read(), std::nullopt);
    test::writeFile(guest.report, R"({"schema":1,"rosetta":"yes","autoUpdatesOff":true,"sleepOff":true,"fileVault":false})");
    EXPECT_EQ(read(), std::nullopt);
    test::writeFile(guest.report, R"({"schema":7,"rosetta":false,"autoUpdatesOff":true,"sleepOff":true,"fileVault":true})");
    report = read();
    ASSERT_TRUE(report);
    EXPECT_EQ(report->installedAt, std::nullopt);
    EXPECT_EQ(report->consoleUser, std::nullopt);
    EXPECT_TRUE(report->fileVault);
    test::writeFile(guest.report, "{\"schema\":1,");
    EXPECT_EQ(read(), std::nullopt);

    // A folder where the file should be is no report either.
    EXPECT_EQ(StatusReport::provisionReport(guest.dir.path(), false, guest.platform), std::nullopt);
}

TEST(StatusReport, LiveCorrections) {
    ReportGuest guest;
    test::writeFile(guest.report, fullReport);
    auto live = [&] { return *StatusReport::provisionReport(guest.report, true, guest.platform, freshTime()); };

    // No preference: the file's user gives way to nothing. fdesetup can't start: the file's FileVault stays.
    auto report = live();
    EXPECT_EQ(report.autoLoginUser, std::nullopt);
    EXPECT_FALSE(report.fileVault);
    EXPECT_EQ(report.consoleUser, "console");

    guest.autoLogin(PlatformValue("ann"), Preferences::Host::any);
    guest.fdesetupPrints("FileVault is On.\n");
    report = live();
    EXPECT_EQ(report.autoLoginUser, "ann");
    EXPECT_TRUE(report.fileVault);

    // This host's value comes first; an empty or non-text one gives nothing.
    guest.autoLogin(PlatformValue("bob"));
    EXPECT_EQ(live().autoLoginUser, "bob");
    guest.autoLogin(PlatformValue(""));
    EXPECT_EQ(live().autoLoginUser, std::nullopt);
    guest.autoLogin(PlatformValue(int64_t(5)));
    EXPECT_EQ(live().autoLoginUser, std::nullopt);

    guest.fdesetupPrints("FileVault is Off.\n");
    test::writeFile(guest.report, R"({"schema":1,"rosetta":true,"autoUpdatesOff":true,"sleepOff":true,"fileVault":true})");
    EXPECT_FALSE(live().fileVault);
    guest.fdesetupPrints("Encryption in progress: Percent completed = 12\n");
    EXPECT_TRUE(live().fileVault);
}

TEST(GuestLiveSettings, FileVaultAnswerIsCachedForTenSeconds) {
    ReportGuest guest;
    guest.fdesetupPrints("FileVault is On.\n");
    const auto t0 = freshTime();
    EXPECT_EQ(GuestLiveSettings::fileVaultOn(*guest.platform.system, t0), true);
    guest.fdesetupPrints("FileVault is Off.\n");
    EXPECT_EQ(GuestLiveSettings::fileVaultOn(*guest.platform.system, t0 + 9s), true);
    EXPECT_EQ(guest.fdesetupRuns(), 1);
    // The cache is dated when the answer came, a little after t0.
    EXPECT_EQ(GuestLiveSettings::fileVaultOn(*guest.platform.system, t0 + 11s), false);
    EXPECT_EQ(guest.fdesetupRuns(), 2);

    // "Not determined" is an answer too, and is cached like the others.
    guest.fdesetupPrints("something else");
    const auto t1 = freshTime();
    EXPECT_EQ(GuestLiveSettings::fileVaultOn(*guest.platform.system, t1), std::nullopt);
    guest.fdesetupPrints("FileVault is On.");
    EXPECT_EQ(GuestLiveSettings::fileVaultOn(*guest.platform.system, t1 + 5s), std::nullopt);
    EXPECT_EQ(guest.fdesetupRuns(), 3);

    EXPECT_EQ(GuestLiveSettings::parseFileVaultStatus("FileVault is Off, FileVault is On"), true);
    EXPECT_EQ(GuestLiveSettings::parseFileVaultStatus("FileVault is Off.\n"), false);
    EXPECT_EQ(GuestLiveSettings::parseFileVaultStatus("FileVault is On \xff"), std::nullopt);  // not UTF-8
    EXPECT_EQ(GuestLiveSettings::parseFileVaultStatus(""), std::nullopt);
}

TEST(StatusReport, RecordForBothKindsOfRun) {
    ReportGuest guest;
    test::writeFile(guest.report, fullReport);
    const auto marker = guest.dir / "libRosettaRuntime";
    guest.fdesetupPrints("FileVault is On.\n");
    StatusReport::Inputs inputs{.uptimeSeconds = 12.5,
                                .activeStreams = {9, 2, 5},
                                .isSimulation = true,
                                .provisionPath = guest.report,
                                .rosettaMarker = marker,
                                .now = freshTime()};

    AgentStatus status = StatusReport::make(inputs, guest.platform);
    EXPECT_EQ(status.uptimeSeconds, 12.5);
    EXPECT_EQ(status.activeStreams, (std::vector<uint32_t>{2, 5, 9}));
    EXPECT_TRUE(status.screenRecordingGranted);
    EXPECT_TRUE(status.accessibilityGranted);
    EXPECT_EQ(status.rosettaInstalled, false);  // always a value
    EXPECT_EQ(status.provision, std::nullopt);  // a simulation has no guest tools
    EXPECT_EQ(guest.fdesetupRuns(), 0);

    test::writeFile(marker, "");
    guest.desktop->setScreenRecordingGranted(false);
    guest.desktop->setAccessibilityTrusted(false);
    inputs.isSimulation = false;
    status = StatusReport::make(inputs, guest.platform);
    EXPECT_EQ(status.rosettaInstalled, true);
    EXPECT_FALSE(status.screenRecordingGranted);
    EXPECT_FALSE(status.accessibilityGranted);
    ASSERT_TRUE(status.provision);
    EXPECT_TRUE(status.provision->fileVault);
    EXPECT_EQ(status.provision->autoLoginUser, std::nullopt);
    // A host polling often: one fdesetup run per ten seconds.
    StatusReport::make(inputs, guest.platform);
    EXPECT_EQ(guest.fdesetupRuns(), 1);
}
