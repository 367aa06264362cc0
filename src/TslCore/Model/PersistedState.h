#pragma once
#include <vector>

#include "TslCore/Model/BetaRecord.h"
#include "TslCore/Model/GuestSetupRecord.h"
#include "TslCore/Model/MigratedApp.h"
#include "TslCore/Model/TesselSettings.h"

namespace tsl {

// Everything the host keeps between runs: the root of the state file.
struct PersistedState {
    bool onboardingDone = false;
    bool acceptedPersonalUseTerms = false;  // recorded only; nothing acts on it
    TesselSettings settings;
    std::vector<MigratedApp> migrated;  // the kept applications, in the order kept
    GuestSetupRecord guestSetup;
    BetaRecord beta;

    bool operator==(const PersistedState&) const = default;
};

}  // namespace tsl
