#pragma once
#include <array>
#include <cstdint>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tsl {

// What is known of applications in the virtual Mac, by bundle identifier and
// version range.
struct CompatDatabase {
    static constexpr int64_t schemaVersion = 1;

    enum class Status : uint8_t { works, limited, wontRun, untested, nativeAvailable };
    static constexpr std::array<Status, 5> allStatuses{Status::works, Status::limited, Status::wontRun,
                                                       Status::untested, Status::nativeAvailable};

    // Both bounds inclusive.
    struct VersionRange {
        std::optional<std::string> min;
        std::optional<std::string> max;

        bool operator==(const VersionRange&) const = default;

        // A range without bounds holds every version, an absent one too; a
        // range with a bound holds no absent version.
        bool contains(const std::optional<std::string>& version) const;
    };

    struct Entry {
        std::string bundleID;  // matched without regard to case
        std::string name;
        std::optional<VersionRange> versions;  // absent: all versions
        Status status = Status::untested;
        std::optional<std::string> note;
        std::optional<std::string> vendorURL;
        std::optional<std::string> recipe;

        bool operator==(const Entry&) const = default;
    };

    int64_t schema = schemaVersion;
    std::optional<std::string> updated;  // a sortable date stamp
    std::vector<Entry> apps;

    bool operator==(const CompatDatabase& other) const {
        return schema == other.schema && updated == other.updated && apps == other.apps;
    }

    // The current form, or failing that the legacy bare array. Throws
    // CompatError::unsupportedSchema for a current form of another schema,
    // and nlohmann::json::exception when neither form decodes.
    static CompatDatabase decode(std::span<const uint8_t> data);

    // The most specific entry for the application: one with both bounds over
    // one with a single bound over one for all versions; the first of equal
    // specificity. Nothing without an identifier.
    const Entry* entry(const std::optional<std::string>& bundleID, const std::optional<std::string>& version) const;

    // Builds the lookup by identifier that `entry` uses, so that a lookup
    // costs what one application's entries cost, not the whole database.
    // decode does it; call it again after changing `apps` by hand (a changed
    // count is noticed, and the lookup falls back to reading every entry).
    void reindex();

private:
    struct Index;
    std::shared_ptr<const Index> _index;
};

std::string_view toString(CompatDatabase::Status status);
std::optional<CompatDatabase::Status> statusFromString(std::string_view text);

// The current form, under the field names; optional fields left out when absent.
void to_json(nlohmann::json& j, const CompatDatabase& db);

}  // namespace tsl
