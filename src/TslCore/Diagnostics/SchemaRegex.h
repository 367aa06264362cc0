#pragma once
#include <memory>
#include <string>
#include <string_view>

namespace tsl {

// The schema's patterns on ICU regular expressions. A pattern "^BODY$" runs as
// "\A(?:BODY)\z", so "$" never matches before a trailing newline and an
// alternation stays inside the anchors. Each pattern is compiled once per
// process, under one lock.
class SchemaRegex {
public:
    class Compiled;

    // Nothing when the pattern is not of the form ^…$ or does not compile.
    static std::shared_ptr<const Compiled> compiled(const std::string& pattern);

    // A match bounded in time and backtracking memory: a pattern that would
    // run away counts as not matching.
    static bool matches(const Compiled& regex, std::string_view text);

    // Compiles (through the cache) and matches; false for a bad pattern.
    static bool matches(const std::string& pattern, std::string_view text);
};

}  // namespace tsl
