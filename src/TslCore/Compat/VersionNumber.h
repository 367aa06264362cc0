#pragma once
#include <cstdint>
#include <string_view>
#include <vector>

// Ordering of free-form application versions ("Version 2.1-beta", "10.15.7"):
// the first run of ASCII digits and dots, at most six numbers, missing
// positions counting as 0.
namespace tsl::VersionNumber {

// -1, 0 or 1.
int compare(std::string_view a, std::string_view b);

// The numbers compared; a piece too large for the type counts as 0.
std::vector<int64_t> parts(std::string_view text);

}  // namespace tsl::VersionNumber
