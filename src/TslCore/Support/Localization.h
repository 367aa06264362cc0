#pragma once
// Older name of the localisation helper; include Localized.h.
#include "TslCore/Support/Localized.h"
