#include "TslCore/Diagnostics/DiagnosticsBatcher.h"

#include <nlohmann/json.hpp>
#include <string_view>

#include "TslCore/Diagnostics/DiagnosticsGuard.h"
#include "TslCore/Diagnostics/DiagnosticsValidator.h"

namespace tsl::DiagnosticsBatcher {

namespace {

// Room left for what the sender's transport adds around the body.
constexpr size_t budget = DiagnosticsSchema::maxBytes - 512;

std::string_view view(const Bytes& data) { return {reinterpret_cast<const char*>(data.data()), data.size()}; }

}  // namespace

Bytes encode(const DiagnosticsBatch& batch, bool pretty) {
    try {
        const std::string text = nlohmann::json(batch).dump(pretty ? 2 : -1);
        return Bytes(text.begin(), text.end());
    } catch (const nlohmann::json::exception&) {
        return {};
    }
}

std::optional<Next> next(const std::vector<DiagnosticEvent>& events, const DiagnosticsBatch::AppPart& app, int64_t now,
                         const std::string& batchID, const std::vector<std::string>& personal) {
    if (events.empty()) return std::nullopt;
    DiagnosticsBatch empty{DiagnosticsSchema::version, batchID, app, {}, {}};
    const Bytes emptyData = encode(empty);
    const size_t base = emptyData.size();
    size_t running = base;
    std::vector<DiagnosticEvent> kept;
    size_t consumed = 0;
    const size_t count = std::min(events.size(), DiagnosticsSchema::maxEvents);
    for (size_t i = 0; i < count; ++i) {
        if (!DiagnosticsGuard::check(events[i], personal, now)) {
            ++consumed;  // so that a bad event is not seen again
            continue;
        }
        DiagnosticsBatch single = empty;
        single.events = {events[i]};
        running += encode(single).size() - base + 1;  // and a comma
        if (running > budget) break;
        kept.push_back(events[i]);
        ++consumed;
    }
    if (consumed == 0) return Next{empty, emptyData, 1};
    if (kept.empty()) return Next{empty, emptyData, consumed};
    DiagnosticsBatch batch = empty;
    batch.events = std::move(kept);
    Bytes data = encode(batch);
    try {
        DiagnosticsValidator::validateBatch(view(data), now);
        DiagnosticsGuard::check(view(data), personal);
    } catch (const std::exception&) {
        return Next{empty, emptyData, 1};  // give up only the oldest event
    }
    return Next{std::move(batch), std::move(data), consumed};
}

}  // namespace tsl::DiagnosticsBatcher
