#include "TslCore/Migration/MigrationError.h"

#include "TslCore/Support/Localized.h"

namespace tsl {
namespace {

std::string describeMigration(MigrationError::Kind kind, const std::string& detail) {
    switch (kind) {
        case MigrationError::Kind::notIntelOnly: return L("%@ isn’t an Intel-only app, so it doesn’t need Tessel.", {detail});
        case MigrationError::Kind::noBundleID: return L("%@ has no bundle identifier, so Tessel can’t keep it.", {detail});
        case MigrationError::Kind::unsafe: return L("Tessel refused to copy this app (%@).", {detail});
    }
    return detail;
}

}  // namespace

MigrationError::MigrationError(Kind kind, std::string detail)
    : Error(describeMigration(kind, detail)), kind(kind), detail(std::move(detail)) {}

}  // namespace tsl
