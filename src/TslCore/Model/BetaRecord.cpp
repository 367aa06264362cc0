#include "TslCore/Model/BetaRecord.h"

namespace tsl {

std::string_view toString(BetaAnswer::Value value) {
    switch (value) {
        case BetaAnswer::Value::works: return "works";
        case BetaAnswer::Value::problem: return "problem";
        case BetaAnswer::Value::skipped: return "skipped";
        case BetaAnswer::Value::notNeeded: return "notNeeded";
    }
    return "";
}

std::optional<BetaAnswer::Value> betaAnswerValueFromString(std::string_view text) {
    for (auto v : {BetaAnswer::Value::works, BetaAnswer::Value::problem, BetaAnswer::Value::skipped,
                   BetaAnswer::Value::notNeeded})
        if (toString(v) == text) return v;
    return std::nullopt;
}

}  // namespace tsl
