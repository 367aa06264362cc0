#include "TslCore/Migration/MigrationPlanner.h"

#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "TslCore/Migration/SafePaths.h"
#include "TslCore/Migration/ShareIO.h"
#include "TslCore/Migration/TreeCopy.h"
#include "TslCore/Support/FileTree.h"
#include "TslCore/Support/JSONFields.h"
#include "TslCore/Support/PathNames.h"

namespace tsl {
namespace {

const std::string migrateFolder = "Migrate";

std::optional<struct stat> examine(const std::string& path) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) return std::nullopt;
    return st;
}

uint64_t allocated(const struct stat& st) { return static_cast<uint64_t>(st.st_blocks) * 512; }

std::optional<std::string> sharedPath(const std::string& shareFolder, const std::optional<std::string>& item) {
    if (!item) return std::nullopt;
    return PathNames::appending(shareFolder, PathNames::lastComponent(*item));
}

// Removes the work folder whatever happens to the staging.
}  // namespace

std::string MigrationPlan::sharedAppPath() const { return *sharedPath(shareFolder, appPath); }
std::optional<std::string> MigrationPlan::sharedPrefsPath() const { return sharedPath(shareFolder, prefsPath); }
std::optional<std::string> MigrationPlan::sharedSupportPath() const { return sharedPath(shareFolder, supportPath); }

template <class V, JSONFields::Is<MigrationPlan> R>
void fields(V& v, R& r) {
    v("appPath", r.appPath);
    v("bundleID", r.bundleID);
    v("appName", r.appName);
    v("prefsPath", r.prefsPath);
    v("supportPath", r.supportPath);
    v("shareFolder", r.shareFolder);
    v("estimatedBytes", r.estimatedBytes);
}

void to_json(nlohmann::json& j, const MigrationPlan& plan) { j = JSONFields::toJSON(plan); }

void from_json(const nlohmann::json& j, MigrationPlan& plan) { JSONFields::fromJSON(j, JSONFields::Path{}, plan); }

MigrationPlan MigrationPlanner::plan(const AppBundleInfo& app, bool allowNonIntel) const {
    if (!allowNonIntel && app.archClass != ArchClass::intelOnly) throw MigrationError::notIntelOnly(app.name);
    if (!app.bundleID || app.bundleID->empty()) throw MigrationError::noBundleID(app.name);
    const std::string& id = *app.bundleID;
    if (!SafePaths::isValidBundleID(id)) throw MigrationError::unsafe("invalid bundle identifier " + id);

    MigrationPlan plan;
    plan.appPath = app.path;
    plan.bundleID = id;
    plan.appName = app.name;
    plan.estimatedBytes = size(app.path);

    const std::string homePath = PathNames::urlPath(home.native());
    const std::string prefs = PathNames::appending(homePath, "Library/Preferences/" + id + ".plist");
    if (const auto st = examine(prefs); st && S_ISREG(st->st_mode)) {
        plan.prefsPath = prefs;
        plan.estimatedBytes += size(prefs);
    }

    const std::string supportRoot = PathNames::appending(homePath, "Library/Application Support");
    for (const std::string& name : {app.name, id, PathNames::stem(app.path)}) {
        if (!SafePaths::isSingleComponent(name)) continue;
        const std::string candidate = PathNames::appending(supportRoot, name);
        const auto st = examine(candidate);
        if (!st || !S_ISDIR(st->st_mode)) continue;
        if (PathNames::standardizedPath(PathNames::deletingLastComponent(candidate)) !=
            PathNames::standardizedPath(supportRoot))
            continue;
        plan.supportPath = candidate;
        plan.estimatedBytes += size(candidate);
        break;
    }

    plan.shareFolder = PathNames::appending(PathNames::urlPath(shareRoot.native()), migrateFolder + "/" + id);
    return plan;
}

void MigrationPlanner::validate(const MigrationPlan& plan) const {
    const std::string share = PathNames::standardizedPath(plan.shareFolder);
    const std::string migrate = PathNames::standardizedPath(PathNames::appending(shareRoot.native(), migrateFolder));
    if (!SafePaths::isValidBundleID(plan.bundleID) || PathNames::deletingLastComponent(share) != migrate ||
        PathNames::lastComponent(share) != plan.bundleID)
        throw MigrationError::unsafe("staging folder " + share);
}

void MigrationPlanner::stage(const MigrationPlan& plan) const {
    validate(plan);
    ShareIO::remove(plan.bundleID, {migrateFolder}, shareRoot);
    const ShareIO::HeldFolder work = ShareIO::makeWorkFolder(shareRoot);
    const std::filesystem::path staged = work.path / plan.bundleID;
    std::filesystem::create_directories(staged);
    TreeCopy::copy(plan.appPath, staged / PathNames::lastComponent(plan.appPath));
    if (plan.prefsPath) TreeCopy::copy(*plan.prefsPath, staged / PathNames::lastComponent(*plan.prefsPath));
    if (plan.supportPath) TreeCopy::copy(*plan.supportPath, staged / PathNames::lastComponent(*plan.supportPath));
    ShareIO::moveIn(staged, {migrateFolder}, shareRoot);
}

void MigrationPlanner::unstage(const MigrationPlan& plan) const {
    validate(plan);
    ShareIO::remove(plan.bundleID, {migrateFolder}, shareRoot);
}

uint64_t MigrationPlanner::size(const std::filesystem::path& of) {
    const auto top = examine(of.native());
    if (!top) return 0;
    if (!S_ISDIR(top->st_mode)) return allocated(*top);
    uint64_t total = 0;
    std::error_code ec;
    for (std::filesystem::recursive_directory_iterator it(of, std::filesystem::directory_options::skip_permission_denied, ec), end;
         !ec && it != end; it.increment(ec)) {
        if (const auto st = examine(it->path().native())) total += allocated(*st);
    }
    return total;
}

}  // namespace tsl
