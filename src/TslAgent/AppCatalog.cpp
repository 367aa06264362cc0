#include "TslAgent/AppCatalog.h"

#include <chrono>
#include <system_error>
#include <unordered_map>

#include "TslCore/Migration/SafePaths.h"
#include "TslCore/Support/PathNames.h"
#include "TslStream/Runtime/Resumption.h"
#include "TslStream/Runtime/Timers.h"
#include "TslStream/Transport/ControlError.h"

namespace tsl::AppCatalog {
namespace {

constexpr int documentRounds = 20;
constexpr auto documentRoundDelay = std::chrono::milliseconds(100);

bool fileExists(const std::string& path) {
    std::error_code ec;
    return std::filesystem::exists(path, ec);
}

std::string withSlash(std::string path) {
    if (!path.ends_with('/')) path += '/';
    return path;
}

bool hasHiddenComponent(std::string_view rest) {
    size_t start = 0;
    while (start < rest.size()) {
        size_t end = rest.find('/', start);
        if (end == std::string_view::npos) end = rest.size();
        if (end > start && rest[start] == '.') return true;
        start = end + 1;
    }
    return false;
}

// The running applications by place and by identifier, the first of each
// kept, so that marking a whole list costs one pass over each.
class RunningIndex {
public:
    explicit RunningIndex(const std::vector<RunningApplication>& running) {
        for (const auto& app : running) {
            if (app.bundleURL) byPlace.try_emplace(PathNames::standardizedPath(app.bundleURL->native()), &app);
            if (app.bundleIdentifier) byID.try_emplace(*app.bundleIdentifier, &app);
        }
    }

    // The first running application of this one: by place, else by identifier.
    const RunningApplication* match(const InstalledApp& app) const {
        if (auto it = byPlace.find(PathNames::standardizedPath(app.path.native())); it != byPlace.end())
            return it->second;
        if (app.id.empty()) return nullptr;
        auto it = byID.find(app.id);
        return it == byID.end() ? nullptr : it->second;
    }

private:
    std::unordered_map<std::string, const RunningApplication*> byPlace, byID;
};

asio::awaitable<std::optional<RunningApplication>> open(std::shared_ptr<const AppSource> source,
                                                        std::filesystem::path application,
                                                        std::vector<std::filesystem::path> documents) {
    using Opened = std::optional<RunningApplication>;
    co_return co_await Resumption<Opened>::suspend([&](Resumption<Opened> done) {
        source->open(application, documents, [done](Opened app, std::exception_ptr error) mutable {
            if (error) done.fail(error);
            else done.resume(std::move(app));
        });
    });
}

}  // namespace

std::vector<GuestApp> list(const AppSource& source) {
    const std::vector<InstalledApp> installed = source.installed();
    const std::vector<RunningApplication> running = source.running();
    const RunningIndex index(running);
    std::vector<GuestApp> apps;
    apps.reserve(installed.size());
    for (const auto& entry : installed) {
        GuestApp app{.bundleID = entry.id, .name = entry.name, .path = entry.path.native(), .version = entry.version};
        if (const RunningApplication* match = index.match(entry)) {
            app.running = true;
            app.pid = match->processIdentifier;
        }
        apps.push_back(std::move(app));
    }
    return apps;
}

asio::awaitable<LaunchResult> launch(LaunchRequest request, std::shared_ptr<const AppSource> source,
                                     std::vector<std::filesystem::path> openRoots,
                                     std::vector<std::filesystem::path> excluded, bool allowSystemLookup) {
    std::filesystem::path application;
    if (request.path) {
        const std::string path = PathNames::standardizedPath(*request.path);
        if (!source->launchable(path)) throw ControlError("forbidden", "can only launch apps from " + source->place());
        application = path;
    } else if (request.bundleID) {
        for (const auto& app : source->installed()) {
            if (app.id == *request.bundleID) {
                application = app.path;
                break;
            }
        }
        if (application.empty() && allowSystemLookup) {
            if (auto found = source->lookUp(*request.bundleID)) application = *found;
        }
        if (application.empty()) throw ControlError("notFound", "no app with bundle id " + *request.bundleID);
    } else {
        throw ControlError("badRequest", "launchApp needs a path or bundle id");
    }

    // The host may still be writing a document into the share.
    for (const auto& path : request.openFiles) {
        for (int round = 0; round < documentRounds && !fileExists(path); ++round) {
            try {
                co_await sleepFor(documentRoundDelay);
            } catch (const std::system_error&) {
                // A cancelled sleep only shortens the round.
            }
        }
    }
    std::vector<std::filesystem::path> documents;
    for (const auto& path : request.openFiles) {
        auto allowed = allowedDocument(path, openRoots, excluded);
        if (!allowed) throw ControlError("forbidden", "file outside the shared folders: " + path);
        documents.push_back(std::move(*allowed));
    }

    const std::optional<RunningApplication> app = co_await open(source, application, std::move(documents));
    LaunchResult result;
    if (app && app->bundleIdentifier) result.bundleID = *app->bundleIdentifier;
    else result.bundleID = request.bundleID.value_or("");
    result.pid = app ? app->processIdentifier : 0;
    co_return result;
}

std::optional<std::filesystem::path> allowedDocument(const std::string& path,
                                                     const std::vector<std::filesystem::path>& roots,
                                                     const std::vector<std::filesystem::path>& excluded) {
    if (!path.starts_with('/')) return std::nullopt;
    const std::string resolved = SafePaths::resolvedPath(path);
    for (const auto& root : roots) {
        const std::string resolvedRoot = SafePaths::resolvedPath(root.native());
        const std::string rootPrefix = withSlash(resolvedRoot);
        if (!resolved.starts_with(rootPrefix)) continue;
        // Hidden folders above the root don't count.
        if (hasHiddenComponent(std::string_view(resolved).substr(resolvedRoot.size()))) continue;
        bool excludedHere = false;
        for (const auto& exclusion : excluded) {
            const std::string resolvedExclusion = SafePaths::resolvedPath(exclusion.native());
            const std::string exclusionPrefix = withSlash(resolvedExclusion);
            if (!resolved.starts_with(exclusionPrefix)) continue;
            // An exclusion never takes away a root that lies inside it.
            if (resolvedRoot == resolvedExclusion || resolvedRoot.starts_with(exclusionPrefix)) continue;
            excludedHere = true;
            break;
        }
        if (!excludedHere) return std::filesystem::path(resolved);
    }
    return std::nullopt;
}

void quit(int32_t pid, const AppSource& source) {
    const std::optional<RunningApplication> app = source.running(pid);
    if (!app || !app->bundleURL || !source.holds(PathNames::standardizedPath(app->bundleURL->native())))
        throw ControlError("forbidden", "not a Tessel app: " + std::to_string(pid));
    (void)source.terminate(pid);
}

bool rosettaInstalled(const std::filesystem::path& marker) { return fileExists(marker.native()); }

}  // namespace tsl::AppCatalog
