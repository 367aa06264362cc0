#include "TslCore/Support/UnicodeText.h"

#include <unicode/brkiter.h>
#include <unicode/unistr.h>
#include <unicode/ustring.h>

#include <memory>

#include <vector>

#include "TslCore/Support/Utf8.h"

namespace tsl {

std::string lowercased(std::string_view text) {
    bool ascii = true;
    for (const char c : text) ascii = ascii && static_cast<unsigned char>(c) < 0x80;
    if (ascii) {
        std::string out(text);
        for (char& c : out)
            if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        return out;
    }
    const std::string valid = repairedUtf8(text);
    UErrorCode status = U_ZERO_ERROR;
    int32_t length = 0;
    u_strFromUTF8(nullptr, 0, &length, valid.data(), static_cast<int32_t>(valid.size()), &status);
    std::vector<UChar> wide(static_cast<size_t>(length) + 1);
    status = U_ZERO_ERROR;
    u_strFromUTF8(wide.data(), length + 1, nullptr, valid.data(), static_cast<int32_t>(valid.size()), &status);
    if (U_FAILURE(status)) return valid;
    // Lower-casing may lengthen the text; ask for the size first.
    status = U_ZERO_ERROR;
    const int32_t lowerLength = u_strToLower(nullptr, 0, wide.data(), length, "", &status);
    std::vector<UChar> lower(static_cast<size_t>(lowerLength) + 1);
    status = U_ZERO_ERROR;
    u_strToLower(lower.data(), lowerLength + 1, wide.data(), length, "", &status);
    if (U_FAILURE(status)) return valid;
    std::string out(static_cast<size_t>(lowerLength) * 3 + 1, '\0');
    int32_t outLength = 0;
    status = U_ZERO_ERROR;
    u_strToUTF8(out.data(), static_cast<int32_t>(out.size()), &outLength, lower.data(), lowerLength, &status);
    if (U_FAILURE(status)) return valid;
    out.resize(static_cast<size_t>(outLength));
    return out;
}

size_t characterCount(std::string_view text) {
    const std::string valid = repairedUtf8(text);
    const icu::UnicodeString wide = icu::UnicodeString::fromUTF8(valid);
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::BreakIterator> breaks(icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    if (U_FAILURE(status) || !breaks) return static_cast<size_t>(wide.countChar32());
    breaks->setText(wide);
    size_t count = 0;
    while (breaks->next() != icu::BreakIterator::DONE) ++count;
    return count;
}

}  // namespace tsl
