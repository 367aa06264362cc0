#pragma once
#include <cstdint>

#include "TslCore/Support/Error.h"

namespace tsl {

// Why a database or a downloaded feed was not taken. The description is the
// case's name ("notHTTPS", "unsupportedSchema(2)"); what the user reads is
// the host's to word.
struct CompatError : Error {
    enum class Kind : uint8_t { unsupportedSchema, tooLarge, notHTTPS, badSignature };

    explicit CompatError(Kind kind, int64_t schema = 0);
    static CompatError unsupportedSchema(int64_t found) { return CompatError(Kind::unsupportedSchema, found); }

    Kind kind;
    int64_t schema;  // the value found, for unsupportedSchema
    bool operator==(const CompatError& other) const { return kind == other.kind && schema == other.schema; }
};

}  // namespace tsl
