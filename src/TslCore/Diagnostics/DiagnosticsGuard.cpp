#include "TslCore/Diagnostics/DiagnosticsGuard.h"

#include <pwd.h>
#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <cctype>
#include <set>

#include "TslCore/Diagnostics/DiagnosticsBatch.h"
#include "TslCore/Diagnostics/DiagnosticsValidator.h"
#include "TslCore/Support/Utf8.h"

extern char** environ;

namespace tsl::DiagnosticsGuard {

using nlohmann::json;

namespace {

constexpr std::array<std::string_view, 12> stopWords{"macbook", "imac", "mini",     "studio",   "pro",    "air",
                                                     "mac",     "the",  "and",      "computer", "laptop", "users"};

constexpr std::array<std::string_view, 34> fileEndings{
    ".txt", ".rtf", ".doc",   ".docx",    ".xls",  ".xlsx", ".ppt",  ".pptx", ".pdf",  ".psd",  ".jpg", ".jpeg",
    ".png", ".pages", ".numbers", ".key", ".app",  ".dmg",  ".pkg",  ".zip",  ".mov",  ".mp4", ".indd",
    ".ai",  ".sketch", ".csv", ".heic", ".gif",  ".tif",  ".tiff", ".html", ".json", ".plist", ".log"};

bool isStopWord(const std::string& word) {
    return std::find(stopWords.begin(), stopWords.end(), word) != stopWords.end();
}

std::string lowercasedASCII(std::string_view text) {
    if (std::all_of(text.begin(), text.end(), [](char c) { return uint8_t(c) < 0x80; })) {
        std::string lower(text);
        for (char& c : lower)
            if (c >= 'A' && c <= 'Z') c = char(c - 'A' + 'a');
        return lower;
    }
    auto unicode = icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), int32_t(text.size())));
    std::string lower;
    unicode.toLower(icu::Locale::getRoot()).toUTF8String(lower);
    return lower;
}

size_t scalars(std::string_view text) {
    return size_t(std::count_if(text.begin(), text.end(), [](char c) { return (uint8_t(c) & 0xC0) != 0x80; }));
}

std::vector<std::string> words(const std::string& text) {
    std::vector<std::string> result;
    std::string word;
    for (size_t at = 0; at < text.size();) {
        const size_t start = at;
        const auto scalar = readUtf8Scalar(text, at);
        if (!scalar) {
            ++at;
            continue;
        }
        if (u_isalpha(UChar32(*scalar)) || u_isdigit(UChar32(*scalar))) {
            word.append(text, start, at - start);
        } else if (!word.empty()) {
            result.push_back(std::move(word));
            word.clear();
        }
    }
    if (!word.empty()) result.push_back(std::move(word));
    return result;
}

// `lower` is already lowercased.
bool endsLikeFileName(std::string_view lower) {
    for (const auto ending : fileEndings) {
        if (lower.ends_with(ending)) return true;
        // Or a file name followed by more words.
        for (size_t at = lower.find(ending); at != std::string_view::npos; at = lower.find(ending, at + 1))
            if (at + ending.size() < lower.size() && lower[at + ending.size()] == ' ') return true;
    }
    return false;
}

bool isFixedFormat(std::string_view key) {
    return std::find(std::begin(fixedFormat), std::end(fixedFormat), key) != std::end(fixedFormat);
}

// Four dot-separated numbers of 0 to 255, alone in their run of digits and
// dots: "connect.10.0.0.5" holds one, "10.0.19041.1" does not.
bool containsIPv4(const std::string& text) {
    for (size_t at = 0; at < text.size();) {
        const size_t begin = text.find_first_of("0123456789", at);
        if (begin == std::string::npos) return false;
        size_t end = text.find_first_not_of("0123456789.", begin);
        if (end == std::string::npos) end = text.size();
        at = end;
        std::string run = text.substr(begin, end - begin);
        while (!run.empty() && run.back() == '.') run.pop_back();
        std::vector<std::string> parts{""};
        for (char c : run) {
            if (c == '.') parts.emplace_back();
            else parts.back().push_back(c);
        }
        if (parts.size() == 4 && std::all_of(parts.begin(), parts.end(), [](const std::string& p) {
                return !p.empty() && p.size() <= 3 && std::stoi(p) <= 255;
            }))
            return true;
    }
    return false;
}

// Hexadecimal groups joined by at least two colons ("fe80::1", "2001:db8::8a2e:370:7334").
bool containsIPv6(const std::string& text) {
    size_t colons = 0, hex = 0;
    for (size_t i = 0; i <= text.size(); ++i) {
        const char c = i < text.size() ? text[i] : ' ';
        if (c == ':') {
            ++colons;
        } else if (std::isxdigit(static_cast<unsigned char>(c))) {
            ++hex;
        } else {
            if (colons >= 2 && hex > 0) return true;
            colons = hex = 0;
        }
    }
    return false;
}

void test(const std::string& value, std::string_view key, const std::vector<std::string>& needleList) {
    if (value.find_first_of("/\\~@") != std::string::npos) throw Problem::suspicious(value);
    const std::string lower = lowercasedASCII(value);
    for (const auto& needle : needleList)
        if (lower.find(needle) != std::string::npos) throw Problem::suspicious(value);
    if (key != "bundleId" && endsLikeFileName(lower)) throw Problem::suspicious(value);
    // A version may well have four small numbers, and so may a bundle
    // identifier, whose components its vendor chose; anywhere else, a code
    // above all, they are an address.
    const bool numbersAllowed = key == "version" || key == "bundleId";
    if ((!numbersAllowed && containsIPv4(value)) || containsIPv6(value)) throw Problem::suspicious(value);
}

}  // namespace

Problem::Problem(Kind kind, std::string value)
    : Error(kind == Kind::suspicious ? "suspicious: " + value
            : kind == Kind::notJSON  ? std::string("notJSON")
                                     : std::string("tooLarge")),
      kind(kind),
      value(std::move(value)) {}

std::map<std::string, std::string> processEnvironment() {
    std::map<std::string, std::string> result;
    for (char** e = environ; e && *e; ++e) {
        const std::string entry = *e;
        const auto eq = entry.find('=');
        if (eq != std::string::npos) result.emplace(entry.substr(0, eq), entry.substr(eq + 1));
    }
    return result;
}

std::vector<std::string> personalValues(const std::map<std::string, std::string>& environment) {
    std::vector<std::string> values;
    auto add = [&values](std::string value) {
        if (!value.empty()) values.push_back(std::move(value));
    };
    passwd entry{};
    passwd* found = nullptr;
    std::vector<char> buffer(16384);
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found) {
        add(found->pw_name ? found->pw_name : "");
        const std::string gecos = found->pw_gecos ? found->pw_gecos : "";
        add(gecos.substr(0, gecos.find(',')));  // the full name is the first field
        add(found->pw_dir ? found->pw_dir : "");
    }
    char host[256] = {};
    if (::gethostname(host, sizeof host - 1) == 0) add(host);
    if (auto user = environment.find("USER"); user != environment.end()) add(user->second);
    return values;
}

std::vector<std::string> needles(const std::vector<std::string>& personal) {
    std::set<std::string> result;
    for (const auto& value : personal) {
        const std::string lower = lowercasedASCII(value);
        if (lower.find('/') == std::string::npos && lower.find(' ') == std::string::npos && scalars(lower) >= 3)
            result.insert(lower);
        const auto all = words(lower);
        std::string joined;
        for (const auto& word : all) {
            if (isStopWord(word)) continue;
            if (scalars(word) >= 4) result.insert(word);
            joined += word;
        }
        if (scalars(joined) >= 6 && all.size() >= 2) result.insert(joined);
    }
    return {result.begin(), result.end()};
}

void check(std::string_view data, const std::vector<std::string>& personal) {
    if (data.size() > DiagnosticsSchema::maxBytes) throw Problem::tooLarge();
    const json value = json::parse(data.begin(), data.end(), nullptr, false);
    if (value.is_discarded()) throw Problem::notJSON();
    const auto needleList = needles(personal);

    // Iterative, so that deep nesting in hostile input cannot exhaust the stack.
    struct Item {
        const json* value;
        std::string_view key;  // into the parsed document, which outlives the walk
        size_t depth;
    };
    std::vector<Item> pending{{&value, "", 0}};
    while (!pending.empty()) {
        Item item = std::move(pending.back());
        pending.pop_back();
        const json& v = *item.value;
        if (v.is_object()) {
            for (const auto& [key, member] : v.items()) {
                if (isFixedFormat(key) || (key == "app" && item.depth == 0)) continue;
                pending.push_back({&member, key, item.depth + 1});
            }
        } else if (v.is_array()) {
            for (const auto& element : v) pending.push_back({&element, item.key, item.depth + 1});
        } else if (v.is_string()) {
            test(v.get_ref<const std::string&>(), item.key, needleList);
        }
    }
}

bool check(const DiagnosticEvent& event, const std::vector<std::string>& personal, int64_t now) {
    try {
        const json value = json::parse(json(event).dump());
        DiagnosticsValidator::event(value, now, "event");
        const json list{{"events", json::array({value})}};
        check(list.dump(), personal);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

bool looksLikeFileName(std::string_view text) { return endsLikeFileName(lowercasedASCII(text)); }

}  // namespace tsl::DiagnosticsGuard
