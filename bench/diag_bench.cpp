// Validates and guards a full batch of 200 events, next to a plain JSON parse
// of the same bytes; and checks that twice the events cost about twice the time.
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "TslCore/Diagnostics/DiagnosticsBatcher.h"
#include "TslCore/Diagnostics/DiagnosticsGuard.h"
#include "TslCore/Diagnostics/DiagnosticsValidator.h"

using namespace tsl;

namespace {

constexpr int64_t now = 1790000000;
const std::vector<std::string> personal{"jdoe", "Jane Q. Doe", "/Users/jdoe", "Jane’s MacBook Pro"};

// A mix of the three kinds, as a day of use gives them.
std::vector<DiagnosticEvent> events(size_t count) {
    std::vector<DiagnosticEvent> list;
    for (size_t i = 0; list.size() < count; ++i) {
        const int64_t at = now - int64_t(i) * 60;
        switch (i % 4) {
            case 0:
            case 1: {
                AppOutcome o;
                o.bundleID = "com.vendor" + std::to_string(i % 17) + ".app" + std::to_string(i % 5);
                o.version = "12." + std::to_string(i % 9) + " (" + std::to_string(1000 + i) + ")";
                o.arch = "x86_64";
                o.outcome = AppOutcome::Outcome(i % 10);
                o.ttfwMs = int64_t(400 + i);
                if (i % 8 == 1) o.crash = CrashSignature::make("EXC_BAD_ACCESS", "SIGSEGV", {std::to_string(i)});
                list.push_back({o, at});
                break;
            }
            case 2: {
                SessionMetrics m;
                m.mac = {"Mac14,6", "Apple M2 Max", 64};
                m.host = {"15.1", "24B83"};
                m.guest = OSInfo{"14.7", "23H124"};
                m.agentProto = 2;
                m.stream = SessionMetrics::Stream{59.9, 44.0, 17, 31};
                m.sleepWake = SessionMetrics::SleepWake{2, 2};
                m.errors = std::vector<std::string>{"capture.stall"};
                m.durationS = 1800;
                list.push_back({m, at});
                break;
            }
            default: list.push_back({SetupStep{SetupStep::Step::agent, SetupStep::Status::ok, 12, std::nullopt}, at});
        }
    }
    return list;
}

std::string body(size_t count) {
    auto list = events(count);
    DiagnosticsBatch batch{1, "AAAAAAAAAAAAAAAAAAAAAA", {"0.9.0-beta.6", "2026.10.7"}, {}, list};
    const Bytes data = DiagnosticsBatcher::encode(batch);
    return {data.begin(), data.end()};
}

void validateAndGuard(const std::string& text) {
    DiagnosticsValidator::validateBatch(text, now);
    DiagnosticsGuard::check(text, personal);
}

}  // namespace

int main() {
    const std::string full = body(200), half = body(100);
    std::printf("batch of 200 events: %zu bytes\n", full.size());
    validateAndGuard(full);  // compiles the patterns once, as a process does

    const int runs = 30;
    const double parse = bench::bestSeconds(runs, [&] { const auto value = nlohmann::json::parse(full); (void)value; });
    const double checked = bench::bestSeconds(runs, [&] { validateAndGuard(full); });
    const double checkedHalf = bench::bestSeconds(runs, [&] { validateAndGuard(half); });
    std::printf("plain parse %.3f ms, validate + guard %.3f ms (100 events: %.3f ms)\n", parse * 1e3, checked * 1e3,
                checkedHalf * 1e3);
    for (const auto* t : {&half, &full}) {
        const double v = bench::bestSeconds(runs, [&] { DiagnosticsValidator::validateBatch(*t, now); });
        const double g = bench::bestSeconds(runs, [&] { DiagnosticsGuard::check(*t, personal); });
        std::printf("  %zu bytes: validate %.3f ms, guard %.3f ms\n", t->size(), v * 1e3, g * 1e3);
    }
    bench::ratioLine("validate + guard vs plain JSON parse", checked, parse, 4.0, false);
    bench::ratioLine("200 events vs 100 events (linear)", checked, checkedHalf, 2.4, false);
    return 0;
}
