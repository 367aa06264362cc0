#include "TslCore/Diagnostics/SchemaRegex.h"

#include <unicode/regex.h>
#include <unicode/unistr.h>

#include <map>
#include <mutex>

namespace tsl {

class SchemaRegex::Compiled {
public:
    explicit Compiled(std::unique_ptr<icu::RegexPattern> pattern) : pattern(std::move(pattern)) {}
    std::unique_ptr<icu::RegexPattern> pattern;
};

namespace {

// Backtracking is capped in steps (about a millisecond each) and in stack
// memory; the schema's own patterns never come near either.
constexpr int32_t matchTimeLimit = 20;
constexpr int32_t matchStackLimit = 1 << 20;
// Patterns from outside documents must not grow the cache without end.
constexpr size_t maxCached = 4096;

bool isAnchored(const std::string& pattern) {
    return pattern.size() >= 2 && pattern.front() == '^' && pattern.back() == '$' &&
           !(pattern.size() >= 3 && pattern[pattern.size() - 2] == '\\');
}

std::shared_ptr<const SchemaRegex::Compiled> compile(const std::string& pattern) {
    if (!isAnchored(pattern)) return nullptr;
    const std::string body = pattern.substr(1, pattern.size() - 2);
    const auto source = icu::UnicodeString::fromUTF8("\\A(?:" + body + ")\\z");
    UErrorCode status = U_ZERO_ERROR;
    UParseError parseError{};
    std::unique_ptr<icu::RegexPattern> compiled(icu::RegexPattern::compile(source, 0, parseError, status));
    if (U_FAILURE(status) || !compiled) return nullptr;
    return std::make_shared<const SchemaRegex::Compiled>(std::move(compiled));
}

struct Cache {
    std::mutex lock;
    std::map<std::string, std::shared_ptr<const SchemaRegex::Compiled>, std::less<>> compiled;
};

Cache& cache() {
    static Cache* shared = new Cache;  // lives to the very end of the process
    return *shared;
}

}  // namespace

std::shared_ptr<const SchemaRegex::Compiled> SchemaRegex::compiled(const std::string& pattern) {
    auto& c = cache();
    std::lock_guard guard(c.lock);
    if (auto it = c.compiled.find(pattern); it != c.compiled.end()) return it->second;
    auto result = compile(pattern);
    if (c.compiled.size() < maxCached) c.compiled.emplace(pattern, result);
    return result;
}

bool SchemaRegex::matches(const Compiled& regex, std::string_view text) {
    const auto input = icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), int32_t(text.size())));
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::RegexMatcher> matcher(regex.pattern->matcher(input, status));
    if (U_FAILURE(status) || !matcher) return false;
    matcher->setTimeLimit(matchTimeLimit, status);
    matcher->setStackLimit(matchStackLimit, status);
    if (U_FAILURE(status)) return false;
    const bool found = matcher->find(status);
    return U_SUCCESS(status) && found;
}

bool SchemaRegex::matches(const std::string& pattern, std::string_view text) {
    const auto regex = compiled(pattern);
    return regex && matches(*regex, text);
}

}  // namespace tsl
