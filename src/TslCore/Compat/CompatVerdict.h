#pragma once
#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "TslCore/Compat/CompatDatabase.h"

namespace tsl {

// How an application will fare in the virtual Mac, and why.
struct CompatVerdict {
    enum class Source : uint8_t { database, heuristic, none };

    CompatDatabase::Status status = CompatDatabase::Status::untested;
    std::optional<std::string> reason;  // a few words for a badge
    std::optional<std::string> note;    // the full sentence
    bool likely = false;                // an estimate to try out, not a known fact
    std::optional<std::string> vendorURL;
    std::optional<std::string> recipe;
    Source source = Source::none;

    bool operator==(const CompatVerdict&) const = default;
};

// What the user should do about an application; also the order in which
// the groups are shown.
enum class CompatGroup : uint8_t { needsTessel, updateInstead, wontRun, alreadyFine, other };

inline constexpr std::array<CompatGroup, 5> allCompatGroups{CompatGroup::needsTessel, CompatGroup::updateInstead,
                                                            CompatGroup::wontRun, CompatGroup::alreadyFine,
                                                            CompatGroup::other};

std::string_view toString(CompatGroup group);
std::string_view toString(CompatVerdict::Source source);

// The group's heading and the line under it, localised.
std::string title(CompatGroup group);
std::string subtitle(CompatGroup group);

}  // namespace tsl
