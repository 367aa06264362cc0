#include "TslCore/Compat/CompatAssessor.h"

#include "TslCore/Support/Localized.h"
#include "TslCore/Support/UnicodeText.h"

namespace tsl {

std::string_view toString(CompatGroup group) {
    switch (group) {
        case CompatGroup::needsTessel: return "needsTessel";
        case CompatGroup::updateInstead: return "updateInstead";
        case CompatGroup::wontRun: return "wontRun";
        case CompatGroup::alreadyFine: return "alreadyFine";
        case CompatGroup::other: return "other";
    }
    return "";
}

std::string_view toString(CompatVerdict::Source source) {
    switch (source) {
        case CompatVerdict::Source::database: return "database";
        case CompatVerdict::Source::heuristic: return "heuristic";
        case CompatVerdict::Source::none: return "none";
    }
    return "";
}

std::string title(CompatGroup group) {
    switch (group) {
        case CompatGroup::needsTessel: return L("Needs Tessel");
        case CompatGroup::updateInstead: return L("Update instead");
        case CompatGroup::wontRun: return L("Won’t run");
        case CompatGroup::alreadyFine: return L("Already fine on Apple silicon");
        case CompatGroup::other: return L("Not an app Tessel can read");
    }
    return "";
}

std::string subtitle(CompatGroup group) {
    switch (group) {
        case CompatGroup::needsTessel: return L("Intel-only apps that stop working without Rosetta.");
        case CompatGroup::updateInstead:
            return L("A version for Apple silicon exists — updating is better than keeping this one.");
        case CompatGroup::wontRun: return L("Tessel can’t run these (they won’t work in the virtual Mac either).");
        case CompatGroup::alreadyFine: return L("These run natively; Tessel isn’t needed.");
        case CompatGroup::other: return L("No readable app executable.");
    }
    return "";
}

namespace CompatAssessor {
namespace {

constexpr size_t badgeLength = 26;

using Status = CompatDatabase::Status;
using Source = CompatVerdict::Source;

CompatVerdict heuristic(Status status, std::string reason, std::string note, bool likely = false) {
    CompatVerdict v;
    v.status = status;
    v.reason = std::move(reason);
    v.note = std::move(note);
    v.likely = likely;
    v.source = Source::heuristic;
    return v;
}

}  // namespace

CompatVerdict verdict(const AppBundleInfo& app, const CompatDatabase& db) {
    if (app.archClass == ArchClass::legacy32bit)
        return heuristic(Status::wontRun, L("32-bit only"),
                         L("32-bit apps haven’t run on macOS since 10.15 — also not in the virtual Mac."));

    if (const auto* entry = db.entry(app.bundleID, app.version)) {
        CompatVerdict v;
        v.status = entry->status;
        v.note = entry->note;
        if (entry->note && characterCount(*entry->note) <= badgeLength) v.reason = entry->note;
        v.vendorURL = entry->vendorURL;
        v.recipe = entry->recipe;
        v.source = Source::database;
        return v;
    }

    const BundleTraits traits = app.traits.value_or(BundleTraits{});
    if (!traits.drivers.empty()) {
        std::string names;
        for (const auto& driver : traits.drivers) names += (names.empty() ? "" : ", ") + driver;
        return heuristic(Status::wontRun, L("drivers"),
                         L("Bundles %@. Drivers aren’t supported: the virtual Mac can’t drive this Mac’s hardware.", {names}));
    }
    if (traits.usesOpenGL || traits.usesOpenCL) {
        const std::string name = traits.usesOpenGL ? "OpenGL" : "OpenCL";
        return heuristic(Status::limited, L("may not draw · %@", {name}),
                         L("Links %@, which the virtual Mac’s graphics don’t provide. It may start but some drawing "
                           "may fail — try it.",
                           {name}),
                         true);
    }
    if (traits.appStoreReceipt)
        return heuristic(Status::limited, L("App Store app"),
                         L("App Store app — you can’t sign in to the App Store inside the virtual Mac; apps that check "
                           "their purchase may refuse to open."));
    return CompatVerdict{};
}

CompatGroup group(const AppBundleInfo& app, const CompatVerdict& verdict) {
    switch (app.archClass) {
        case ArchClass::universal:
        case ArchClass::appleSilicon: return CompatGroup::alreadyFine;
        case ArchClass::legacy32bit: return CompatGroup::wontRun;
        case ArchClass::unknown: return CompatGroup::other;
        case ArchClass::intelOnly: break;
    }
    switch (verdict.status) {
        case Status::works:
        case Status::limited:
        case Status::untested: return CompatGroup::needsTessel;
        case Status::wontRun: return CompatGroup::wontRun;
        case Status::nativeAvailable: return CompatGroup::updateInstead;
    }
    return CompatGroup::other;
}

bool preselect(CompatGroup group) { return group == CompatGroup::needsTessel; }

}  // namespace CompatAssessor
}  // namespace tsl
