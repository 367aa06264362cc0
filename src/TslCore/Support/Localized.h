#pragma once
#include <initializer_list>
#include <string>
#include <string_view>

namespace tsl {

// A text the user reads on the host, looked up with its English as the key.
// No translations ship yet, so every key is its own text; callers still go
// through here so that adding a table later touches no call site.
inline std::string L(std::string_view english) { return std::string(english); }

// A key with "%@" placeholders, filled in order after the lookup, so that a
// translation may move them within the sentence.
inline std::string L(std::string_view english, std::initializer_list<std::string_view> arguments) {
    const std::string text = L(english);
    std::string out;
    size_t at = 0;
    auto argument = arguments.begin();
    for (size_t mark; (mark = text.find("%@", at)) != std::string::npos && argument != arguments.end(); at = mark + 2)
        out.append(text, at, mark - at).append(*argument++);
    return out.append(text, at);
}

}  // namespace tsl
