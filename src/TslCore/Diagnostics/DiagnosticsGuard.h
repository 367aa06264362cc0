#pragma once
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "TslCore/Diagnostics/DiagnosticEvent.h"
#include "TslCore/Support/Error.h"

namespace tsl::DiagnosticsGuard {

// Why finished JSON may not leave the machine.
class Problem : public Error {
public:
    enum class Kind : uint8_t { suspicious, notJSON, tooLarge };

    static Problem suspicious(std::string value) { return Problem(Kind::suspicious, std::move(value)); }
    static Problem notJSON() { return Problem(Kind::notJSON, {}); }
    static Problem tooLarge() { return Problem(Kind::tooLarge, {}); }

    Kind kind;
    std::string value;  // the offending text, for `suspicious`

private:
    Problem(Kind kind, std::string value);
};

// Keys whose whole subtree the schema already pins to a fixed format.
inline constexpr std::string_view fixedFormat[]{"batch", "consent", "mac", "host", "guest", "hash"};

// The account name, the full user name, the home folder, the computer's name
// and the environment's USER, in that order; empty ones left out.
std::vector<std::string> personalValues(const std::map<std::string, std::string>& environment);
// The process's own environment as a map, for personalValues.
std::map<std::string, std::string> processEnvironment();

// Lower-cased texts to search for, sorted and unique.
std::vector<std::string> needles(const std::vector<std::string>& personal);

// Refuses, never repairs: a path, an address, a personal name or a document
// name anywhere outside the fixed-format fields throws Problem.
void check(std::string_view data, const std::vector<std::string>& personal);

// True when the event passes the validator and the guard as the only event of
// a list; failures are false, never errors.
bool check(const DiagnosticEvent& event, const std::vector<std::string>& personal, int64_t now);

bool looksLikeFileName(std::string_view text);

}  // namespace tsl::DiagnosticsGuard
