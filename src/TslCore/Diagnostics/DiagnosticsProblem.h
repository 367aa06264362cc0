#pragma once
#include <string>

#include "TslCore/Support/Error.h"

namespace tsl::DiagnosticsValidator {

// The first thing wrong with a value, at the path of the offending field
// (`events[3].crash.hash`; empty for the root).
class Problem : public Error {
public:
    Problem(std::string field, std::string reason)
        : Error(field + ": " + reason), field(std::move(field)), reason(std::move(reason)) {}

    std::string field;
    std::string reason;
};

}  // namespace tsl::DiagnosticsValidator
