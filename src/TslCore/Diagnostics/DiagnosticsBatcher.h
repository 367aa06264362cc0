#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "TslCore/Diagnostics/DiagnosticsBatch.h"
#include "TslCore/Support/Bytes.h"

namespace tsl::DiagnosticsBatcher {

// Sorted keys always; `pretty` indents. Empty if encoding fails.
Bytes encode(const DiagnosticsBatch& batch, bool pretty = false);

struct Next {
    DiagnosticsBatch batch;  // no events: nothing to send, only drop `consumed`
    Bytes data;              // exactly the bytes the validator and the guard passed
    size_t consumed = 0;     // events to drop from the head once delivered
};

// The next batch from the oldest events, within 200 events and 65024 bytes.
// A pure function: the caller passes what the queue's events() gave.
std::optional<Next> next(const std::vector<DiagnosticEvent>& events, const DiagnosticsBatch::AppPart& app, int64_t now,
                         const std::string& batchID, const std::vector<std::string>& personal);

}  // namespace tsl::DiagnosticsBatcher
