#include "TslCore/Model/ShimNaming.h"

#include <unicode/brkiter.h>
#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <memory>

#include "TslCore/Support/Utf8.h"

namespace tsl::ShimNaming {
namespace {

// A user-perceived character is judged by its first scalar, as a combining
// accent belongs to the letter before it.
bool keeps(UChar32 first) {
    return first == '.' || first == '-' || u_hasBinaryProperty(first, UCHAR_ALPHABETIC) ||
           u_getNumericValue(first) != U_NO_NUMERIC_VALUE;
}

// Without the scalars that `trims` picks at either end (text is valid UTF-8).
std::string trimmed(std::string_view text, bool (*trims)(char32_t)) {
    size_t begin = 0;
    for (size_t at = 0; at < text.size() && trims(*readUtf8Scalar(text, at));) begin = at;
    size_t end = text.size();
    while (end > begin) {
        size_t start = end - 1;
        while (start > begin && (static_cast<unsigned char>(text[start]) & 0xC0) == 0x80) --start;
        size_t at = start;
        if (!trims(*readUtf8Scalar(text, at))) break;
        end = start;
    }
    return std::string(text.substr(begin, end - begin));
}

}  // namespace

std::string bundleID(std::string_view forOriginal) {
    const std::string valid = repairedUtf8(forOriginal);
    icu::UnicodeString text = icu::UnicodeString::fromUTF8(valid);
    text.toLower(icu::Locale::getRoot());

    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::BreakIterator> characters(
        icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    icu::UnicodeString mapped;
    if (U_SUCCESS(status)) {
        characters->setText(text);
        for (int32_t start = characters->first(), end = characters->next(); end != icu::BreakIterator::DONE;
             start = end, end = characters->next()) {
            if (keeps(text.char32At(start)))
                mapped.append(text, start, end - start);
            else
                mapped.append(u'-');
        }
    }
    std::string out;
    mapped.toUTF8String(out);
    return "com.tessel.shim." + trimmed(out, [](char32_t c) { return c == U'.' || c == U'-'; });
}

std::string bundleName(std::string_view forAppName) {
    std::string name = repairedUtf8(forAppName);
    for (char& c : name)
        if (c == '/' || c == ':') c = '-';
    name = trimmed(name, isUnicodeWhitespace);
    if (name.empty() || name.front() == '.') name = "App";
    return name + ".app";
}

}  // namespace tsl::ShimNaming
