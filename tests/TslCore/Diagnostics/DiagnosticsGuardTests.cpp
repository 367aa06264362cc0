// The sanitizer's cleaning and the guard's refusals, on realistic data.
#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "TslCore/Diagnostics/DiagnosticsBatch.h"
#include "TslCore/Diagnostics/DiagnosticsGuard.h"
#include "TslCore/Diagnostics/DiagnosticsSanitizer.h"
#include "TslCore/Diagnostics/DiagnosticsTestEvents.h"

using namespace tsl;
using namespace tsl::test;
using nlohmann::json;

namespace {

const std::vector<std::string> someone{"jdoe", "Jane Q. Doe", "/Users/jdoe", "Jane’s MacBook Pro"};

// The offending value, "" when the guard lets the body through.
std::string refused(const json& body, const std::vector<std::string>& personal = someone) {
    try {
        DiagnosticsGuard::check(body.dump(), personal);
    } catch (const DiagnosticsGuard::Problem& p) {
        return p.kind == DiagnosticsGuard::Problem::Kind::suspicious ? p.value : "not suspicious";
    }
    return "";
}

json bodyWith(const std::string& key, const std::string& value) {
    json event = setupEvent();
    event[key] = value;
    return {{"events", {event}}};
}

SessionMetrics session(const DiagnosticEvent& event) { return std::get<SessionMetrics>(event.payload); }

}  // namespace

TEST(DiagnosticsGuard, NeedlesFromPersonalValues) {
    using DiagnosticsGuard::needles;
    EXPECT_TRUE(needles({"al"}).empty());
    EXPECT_EQ(needles({"bob"}), std::vector<std::string>{"bob"});
    EXPECT_EQ(needles({"Bob Ann"}), std::vector<std::string>{"bobann"});
    EXPECT_TRUE(needles({"MacBook Pro"}).empty());
    EXPECT_EQ(needles({"/Users/someone"}), std::vector<std::string>{"someone"});
    EXPECT_EQ(needles(someone), (std::vector<std::string>{"jane", "janeqdoe", "jdoe"}));
}

TEST(DiagnosticsGuard, RefusesPersonalTextsAndLetsTheSchemaFieldsThrough) {
    // Everything the schema allows, in a full batch, passes.
    const json batch = DiagnosticsBatch{1, DiagnosticsBatch::newID(), appPart(), {}, {appEvent(), sessionEvent(), setupEvent()}};
    EXPECT_EQ(refused(batch), "");

    EXPECT_EQ(refused(bodyWith("failure", "/Users/jdoe/Library/Logs/x")), "/Users/jdoe/Library/Logs/x");
    EXPECT_EQ(refused(bodyWith("failure", "~/Documents")), "~/Documents");
    EXPECT_EQ(refused(bodyWith("failure", "C:\\Users")), "C:\\Users");
    EXPECT_EQ(refused(bodyWith("failure", "mail jane.doe@example.com")), "mail jane.doe@example.com");
    EXPECT_EQ(refused(bodyWith("failure", "connect.192.168.64.2")), "connect.192.168.64.2");
    EXPECT_EQ(refused(bodyWith("failure", "peer fe80::1c2a:3bff:fe4d:5e6f")), "peer fe80::1c2a:3bff:fe4d:5e6f");
    EXPECT_EQ(refused(bodyWith("failure", "2001:db8::8a2e:370:7334")), "2001:db8::8a2e:370:7334");
    EXPECT_EQ(refused(bodyWith("failure", "setup.janedoe.failed")), "setup.janedoe.failed");
    EXPECT_EQ(refused(bodyWith("failure", "JDOE")), "JDOE");
    EXPECT_EQ(refused(bodyWith("failure", "Quarterly Report.pdf")), "Quarterly Report.pdf");
    EXPECT_EQ(refused(bodyWith("failure", "report.pdf final")), "report.pdf final");
    EXPECT_EQ(refused(bodyWith("failure", "pdf")), "");
    EXPECT_EQ(refused(bodyWith("failure", "build.10.0.19041.1")), "");
    EXPECT_EQ(refused(bodyWith("version", "10.1.2.3")), "");
    EXPECT_EQ(refused(bodyWith("bundleId", "com.vendor.1.2.3.4")), "");
    EXPECT_EQ(refused(bodyWith("failure", "net.1.2.3.4")), "net.1.2.3.4");
    EXPECT_EQ(refused(bodyWith("errors", "dial_10.0.0.5")), "dial_10.0.0.5");
    EXPECT_EQ(refused(bodyWith("bundleId", "com.example.key")), "");
    EXPECT_EQ(refused(bodyWith("failure", "com.example.key")), "com.example.key");
}

TEST(DiagnosticsGuard, FixedFormatSubtreesAndTheTopLevelApp) {
    EXPECT_EQ(refused({{"mac", {{"model", "/Users/jdoe"}}}, {"app", {{"version", "~"}}}}), "");
    EXPECT_EQ(refused({{"events", {{{"app", {{"version", "~"}}}}}}}), "~");
    EXPECT_EQ(refused({{"hash", "jane@x"}, {"x", {{"batch", "/"}}}}), "");
    EXPECT_EQ(refused({{"errors", {"ok.code", "/tmp"}}}), "/tmp");

    EXPECT_THROW(DiagnosticsGuard::check("{", someone), DiagnosticsGuard::Problem);
    try {
        DiagnosticsGuard::check(std::string(65537, ' '), someone);
        FAIL();
    } catch (const DiagnosticsGuard::Problem& p) {
        EXPECT_EQ(p.kind, DiagnosticsGuard::Problem::Kind::tooLarge);
    }
    // Hostile nesting is walked without recursion.
    const std::string deep = std::string(30000, '[') + "\"/\"" + std::string(30000, ']');
    try {
        DiagnosticsGuard::check(deep, someone);
        ADD_FAILURE() << "deep text let through";
    } catch (const DiagnosticsGuard::Problem& p) {
        EXPECT_EQ(p.value, "/");
    }
}

TEST(DiagnosticsGuard, TheSystemsOwnNamesAreNeedles) {
    const auto personal = DiagnosticsGuard::personalValues({{"USER", "someone-else"}});
    passwd* entry = ::getpwuid(::getuid());
    ASSERT_NE(entry, nullptr);
    ASSERT_FALSE(personal.empty());
    EXPECT_EQ(personal.front(), entry->pw_name);
    EXPECT_EQ(personal.back(), "someone-else");
    EXPECT_NE(std::find(personal.begin(), personal.end(), std::string(entry->pw_dir)), personal.end());
    const std::string login = entry->pw_name;
    if (login.size() >= 3) {
        EXPECT_EQ(refused(bodyWith("failure", "login." + login), personal), "login." + login);
    }
    const std::string gecos = entry->pw_gecos ? entry->pw_gecos : "";
    const std::string fullName = gecos.substr(0, gecos.find(','));
    for (const auto& needle : DiagnosticsGuard::needles({fullName}))
        EXPECT_EQ(refused(bodyWith("failure", "x" + needle), personal), "x" + needle);
    EXPECT_EQ(refused(bodyWith("failure", "someone.else"), personal), "someone.else");
}

TEST(DiagnosticsGuard, EventCheckRunsTheValidatorAndTheGuard) {
    EXPECT_TRUE(DiagnosticsGuard::check(appEvent(), someone, diagNow));
    EXPECT_TRUE(DiagnosticsGuard::check(appEvent("com.vendor.1.2.3.4"), someone, diagNow));
    EXPECT_FALSE(DiagnosticsGuard::check(appEvent("com.jdoe.tool"), someone, diagNow));
    EXPECT_FALSE(DiagnosticsGuard::check(appEvent("com.example.editor", diagNow + 301), someone, diagNow));
    auto bad = setupEvent();
    std::get<SetupStep>(bad.payload).failure = "Has Capitals";
    EXPECT_FALSE(DiagnosticsGuard::check(bad, someone, diagNow));
}

TEST(DiagnosticsSanitizer, AppOutcomes) {
    auto event = appEvent();
    auto& outcome = std::get<AppOutcome>(event.payload);
    outcome.version = "  4.2  ";
    outcome.arch = "ppc";
    outcome.ttfwMs = 900000;
    outcome.crash->signal = "segv";
    const auto cleaned = DiagnosticsSanitizer::sanitize(event);
    ASSERT_TRUE(cleaned);
    const auto& result = std::get<AppOutcome>(cleaned->payload);
    EXPECT_EQ(cleaned->at, event.at);
    EXPECT_EQ(result.version, "4.2");
    EXPECT_EQ(result.arch, std::nullopt);
    EXPECT_EQ(result.ttfwMs, 600000);
    ASSERT_TRUE(result.crash);
    EXPECT_EQ(result.crash->signal, std::nullopt);
    outcome.crash->hash = "short";
    EXPECT_FALSE(std::get<AppOutcome>(DiagnosticsSanitizer::sanitize(event)->payload).crash);
    outcome.bundleID = "not a bundle";
    EXPECT_FALSE(DiagnosticsSanitizer::sanitize(event));
    outcome.bundleID = "com." + std::string(160, 'a');  // past 155 scalars, though each piece is too long anyway
    EXPECT_FALSE(DiagnosticsSanitizer::sanitize(event));
}

TEST(DiagnosticsSanitizer, SessionMetrics) {
    auto event = sessionEvent();
    auto& m = std::get<SessionMetrics>(event.payload);
    m.mac.chip = " Apple M2 Max ";
    m.mac.ramGB = 1;
    m.guest = OSInfo{"Sonoma", std::nullopt};
    m.stream = SessionMetrics::Stream{59.96, 300, -5, 70000};
    m.sleepWake = SessionMetrics::SleepWake{4, 9};
    m.errors = std::vector<std::string>{};
    for (int i = 0; i < 25; ++i) m.errors->push_back("code." + std::to_string(i));
    m.errors->insert(m.errors->begin(), "/etc/passwd");
    m.durationS = -1;
    auto cleaned = session(*DiagnosticsSanitizer::sanitize(event));
    EXPECT_EQ(cleaned.mac, (MacInfo{"MacBookPro18,3", "Apple M2 Max", 4}));
    EXPECT_FALSE(cleaned.guest);
    EXPECT_EQ(cleaned.stream, (SessionMetrics::Stream{60.0, 240.0, 0, 60000}));
    EXPECT_EQ(cleaned.sleepWake, (SessionMetrics::SleepWake{4, 4}));
    ASSERT_EQ(cleaned.errors->size(), 20u);
    EXPECT_EQ(cleaned.errors->front(), "code.0");
    EXPECT_EQ(cleaned.errors->back(), "code.19");
    EXPECT_EQ(cleaned.durationS, 0);

    m.stream = SessionMetrics::Stream{std::nan(""), std::nullopt, std::nullopt, std::nullopt};
    m.sleepWake = SessionMetrics::SleepWake{0, 3};
    m.errors = std::vector<std::string>(25, "Bad Code");
    cleaned = session(*DiagnosticsSanitizer::sanitize(event));
    EXPECT_FALSE(cleaned.stream);
    EXPECT_FALSE(cleaned.sleepWake);
    EXPECT_FALSE(cleaned.errors);

    m.host = OSInfo{"Version 15.1", "Build 24B83"};
    EXPECT_EQ(session(*DiagnosticsSanitizer::sanitize(event)).host, (OSInfo{"15.1", "24B83"}));
    m.mac.model = "Jane's Mac";
    EXPECT_FALSE(DiagnosticsSanitizer::sanitize(event));
}

TEST(DiagnosticsSanitizer, OperatingSystemTextsAndSetupSteps) {
    using DiagnosticsSanitizer::osInfo;
    EXPECT_EQ(osInfo("Version 15.1 (Build 24B83)"), (OSInfo{"15.1", "24B83"}));
    EXPECT_EQ(osInfo("Version 15.1 (Build weird)"), (OSInfo{"15.1", std::nullopt}));
    EXPECT_EQ(osInfo("14.7.1"), (OSInfo{"14.7.1", std::nullopt}));
    EXPECT_EQ(osInfo("Sonoma 14.7"), std::nullopt);
    EXPECT_EQ(osInfo(std::nullopt), std::nullopt);

    auto step = setupEvent();
    std::get<SetupStep>(step.payload).durationS = 9999999;
    std::get<SetupStep>(step.payload).failure = "/Volumes/x";
    const auto cleaned = std::get<SetupStep>(DiagnosticsSanitizer::sanitize(step)->payload);
    EXPECT_EQ(cleaned.durationS, 2592000);
    EXPECT_EQ(cleaned.failure, std::nullopt);
    EXPECT_EQ(cleaned.step, SetupStep::Step::guestTools);
}
