#pragma once
#include "TslCore/Compat/CompatDatabase.h"
#include "TslCore/Compat/CompatVerdict.h"
#include "TslCore/Scanner/AppBundleInfo.h"

// Joins what the scanner found with what the database knows. Pure: no file
// or network is touched.
namespace tsl::CompatAssessor {

// The database wins over every heuristic except a 32-bit executable, which
// runs nowhere.
CompatVerdict verdict(const AppBundleInfo& app, const CompatDatabase& db);

CompatGroup group(const AppBundleInfo& app, const CompatVerdict& verdict);

// Whether the application is offered for keeping without the user asking.
bool preselect(CompatGroup group);

}  // namespace tsl::CompatAssessor
