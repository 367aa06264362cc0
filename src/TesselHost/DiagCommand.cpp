// tessel diag schema | validate FILE | queue --dir DIR list|add|next|delivered:
// the diagnostics schema, the validator and a queue folder, for senders in any language.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "TesselHost/Commands.h"
#include "TslCore/Diagnostics/DiagnosticsBatch.h"
#include "TslCore/Diagnostics/DiagnosticsBatcher.h"
#include "TslCore/Diagnostics/DiagnosticsGuard.h"
#include "TslCore/Diagnostics/DiagnosticsQueue.h"
#include "TslCore/Diagnostics/DiagnosticsSanitizer.h"
#include "TslCore/Diagnostics/DiagnosticsSchemaFile.h"
#include "TslCore/Diagnostics/DiagnosticsValidator.h"
#include "TslCore/Diagnostics/ProblemReport.h"
#include "TslCore/Support/BoundedFile.h"
#include "TslCore/Support/TesselVersion.h"

namespace tsl::host {
namespace {

using nlohmann::json;

struct DiagArguments {
    bool json = false;
    std::string file;
    bool report = false;
    std::optional<int64_t> now;
    std::string dir;
    std::string id;
    std::string appVersion{TesselVersion::string};
    std::string appBuild{TesselVersion::build};
};

// A body or an event, no larger than anything the queue or the service takes.
std::string readInput(const std::string& path) {
    constexpr size_t limit = std::max(DiagnosticsSchema::maxBytes, ProblemReport::maxBytes);
    if (path == "-") return BoundedFile::readStream(0, "standard input", limit);
    return BoundedFile::read(path, limit).bytes;
}

std::vector<std::string> personal() {
    return DiagnosticsGuard::personalValues(DiagnosticsGuard::processEnvironment());
}

int64_t now(const DiagArguments& args) { return args.now.value_or(DiagnosticsQueue::currentSeconds()); }

ExitStatus runSchema(const DiagArguments& args) {
    std::cout << DiagnosticsSchemaFile::document().dump(args.json ? -1 : 2) << '\n';
    return ExitStatus::success;
}

ExitStatus runValidate(const DiagArguments& args) {
    const std::string data = readInput(args.file);
    try {
        if (args.report) DiagnosticsValidator::validateReport(data, now(args));
        else DiagnosticsValidator::validateBatch(data, now(args));
    } catch (const DiagnosticsValidator::Problem& problem) {
        if (args.json) std::cout << json{{"valid", false}, {"field", problem.field}, {"reason", problem.reason}} << '\n';
        else std::cout << problem.description() << '\n';
        return ExitStatus::failure;
    }
    std::cout << (args.json ? json{{"valid", true}}.dump() : "valid") << '\n';
    return ExitStatus::success;
}

std::string summary(const DiagnosticEvent& event) {
    return std::visit(
        [](const auto& p) -> std::string {
            using T = std::decay_t<decltype(p)>;
            if constexpr (std::is_same_v<T, AppOutcome>) {
                return p.bundleID + " " + std::string(AppOutcome::outcomeTexts[size_t(p.outcome)]);
            } else if constexpr (std::is_same_v<T, SessionMetrics>) {
                return p.mac.model + ", " + p.host.os + (p.durationS ? ", " + std::to_string(*p.durationS) + " s" : "");
            } else {
                return std::string(SetupStep::stepTexts[size_t(p.step)]) + " " +
                       std::string(SetupStep::statusTexts[size_t(p.status)]);
            }
        },
        event.payload);
}

ExitStatus runList(const DiagArguments& args) {
    DiagnosticsQueue queue(args.dir, personal());
    const auto events = queue.events();
    const auto inFlight = queue.inFlight();
    const auto reports = queue.reports();
    if (args.json) {
        json out{{"events", events}, {"reports", reports}};
        if (inFlight) out["inFlight"] = {{"id", inFlight->id}, {"count", inFlight->count}};
        printJSON(out);
        return ExitStatus::success;
    }
    std::cout << events.size() << (events.size() == 1 ? " event" : " events");
    if (inFlight) std::cout << ", batch " << inFlight->id << " in flight with the first " << inFlight->count;
    std::cout << '\n';
    for (const auto& event : events) {
        const auto kind = DiagnosticEvent::kindTexts[size_t(event.kind())];
        std::printf("  %-10lld  %-7s  %s\n", static_cast<long long>(event.at), std::string(kind).c_str(),
                    summary(event).c_str());
    }
    std::fflush(stdout);
    std::cout << reports.size() << (reports.size() == 1 ? " report" : " reports") << '\n';
    for (const auto& report : reports) {
        const std::string firstLine = report.text.substr(0, report.text.find('\n'));
        std::cout << "  " << report.id.value_or("-") << "  "
                  << ProblemReport::categoryTexts[size_t(report.category)] << "  " << firstLine << '\n';
    }
    return ExitStatus::success;
}

ExitStatus runAdd(const DiagArguments& args) {
    const std::string data = readInput(args.file);
    DiagnosticEvent event;
    try {
        event = json::parse(data).get<DiagnosticEvent>();
    } catch (const std::exception&) {
        throw CommandFailure("not a diagnostic event: " + args.file);
    }
    const auto people = personal();
    const auto cleaned = DiagnosticsSanitizer::sanitize(event);
    if (!cleaned) throw CommandFailure("dropped: the event's identifying fields are unusable");
    if (!DiagnosticsGuard::check(*cleaned, people, now(args)))
        throw CommandFailure("refused: the event does not pass the validator and the guard");
    DiagnosticsQueue(args.dir, people).append(event, now(args));
    std::cout << (args.json ? json{{"stored", *cleaned}}.dump() : "stored") << '\n';
    return ExitStatus::success;
}

ExitStatus runNext(const DiagArguments& args) {
    const auto people = personal();
    DiagnosticsQueue queue(args.dir, people);
    const auto inFlight = queue.inFlight();
    const std::string id = inFlight ? inFlight->id : DiagnosticsBatch::newID();
    const auto next = DiagnosticsBatcher::next(queue.events(), {args.appVersion, args.appBuild}, now(args), id, people);
    if (!next) {
        std::cout << (args.json ? json{{"events", 0}, {"consumed", 0}}.dump() : "nothing queued") << '\n';
        return ExitStatus::success;
    }
    if (next->batch.events.empty()) {
        queue.dropFirst(next->consumed);
        if (args.json) std::cout << json{{"events", 0}, {"consumed", next->consumed}} << '\n';
        else std::cout << "nothing to send; " << next->consumed << " unusable events dropped\n";
        return ExitStatus::success;
    }
    queue.setInFlight({id, int64_t(next->consumed)});
    const std::string body(next->data.begin(), next->data.end());
    if (args.json) {
        std::cout << json{{"id", id}, {"events", next->batch.events.size()}, {"consumed", next->consumed}, {"body", body}}
                  << '\n';
    } else {
        std::cout << body << '\n';
    }
    return ExitStatus::success;
}

ExitStatus runDelivered(const DiagArguments& args) {
    DiagnosticsQueue queue(args.dir, personal());
    const auto inFlight = queue.inFlight();
    if (!inFlight || inFlight->id != args.id) throw CommandFailure("no batch in flight with the identifier " + args.id);
    queue.dropFirst(size_t(std::max<int64_t>(0, inFlight->count)));
    if (args.json) std::cout << json{{"delivered", inFlight->id}, {"removed", inFlight->count}} << '\n';
    else std::cout << "delivered: " << inFlight->count << " events removed\n";
    return ExitStatus::success;
}

}  // namespace

void addDiagCommand(CLI::App& app, ExitStatus& status) {
    auto args = std::make_shared<DiagArguments>();
    CLI::App* diag = app.add_subcommand("diag", "Diagnostics: the schema, the validator and the on-disk queue");
    diag->require_subcommand(1);
    auto jsonFlag = [&args](CLI::App* command) { command->add_flag("--json", args->json, "Print JSON for scripts"); };
    auto nowOption = [&args](CLI::App* command) {
        command->add_option("--now", args->now, "The time to check against, in seconds since 1970 (default: now)");
    };

    CLI::App* schema = diag->add_subcommand("schema", "Print the generated schema that every batch must follow");
    schema->add_flag("--json", args->json, "Print it on one line");
    setAction(schema, status, [args] { return runSchema(*args); });

    CLI::App* validate = diag->add_subcommand("validate", "Check a batch (or a report) and print its first problem");
    validate->add_option("file", args->file, "The JSON body to check; - reads standard input")->required();
    validate->add_flag("--report", args->report, "The body is a problem report, not a batch");
    nowOption(validate);
    jsonFlag(validate);
    validate->footer("Status 1 also when the body has a problem; it is printed on standard output.");
    setAction(validate, status, [args] { return runValidate(*args); });

    CLI::App* queue = diag->add_subcommand("queue", "Drive a queue folder: list, add, next, delivered");
    queue->add_option("--dir", args->dir, "The queue's folder")->required();
    queue->require_subcommand(1);
    CLI::App* list = queue->add_subcommand("list", "Show the queued events, the batch in flight and the reports");
    jsonFlag(list);
    setAction(list, status, [args] { return runList(*args); });
    CLI::App* add = queue->add_subcommand("add", "Clean, screen and queue one event");
    add->add_option("event", args->file, "The event as JSON; - reads standard input")->required();
    nowOption(add);
    jsonFlag(add);
    setAction(add, status, [args] { return runAdd(*args); });
    CLI::App* next = queue->add_subcommand("next", "Form the next batch, mark it in flight and print its exact body");
    next->add_option("--app-version", args->appVersion, "The sending application's version")->capture_default_str();
    next->add_option("--app-build", args->appBuild, "The sending application's build")->capture_default_str();
    nowOption(next);
    jsonFlag(next);
    setAction(next, status, [args] { return runNext(*args); });
    CLI::App* delivered = queue->add_subcommand("delivered", "Drop the events of the batch in flight once it was accepted");
    delivered->add_option("id", args->id, "The batch's identifier");
    jsonFlag(delivered);
    // An identifier is URL-safe Base64 and may begin with "-", which reads as
    // an unknown option: taken as the identifier all the same. One beginning
    // "--" is an unknown option still; after "--" it is the identifier.
    delivered->allow_extras();
    setAction(delivered, status, [args, delivered] {
        const auto extras = delivered->remaining();
        for (const auto& extra : extras)
            if (extra.starts_with("--")) throw CLI::ExtrasError({extra});
        if (args->id.empty() && extras.size() == 1) args->id = extras.front();
        else if (args->id.empty() || !extras.empty())
            throw CLI::ValidationError("id", "one batch identifier is required");
        return runDelivered(*args);
    });
}

}  // namespace tsl::host
