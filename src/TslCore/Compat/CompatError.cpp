#include "TslCore/Compat/CompatError.h"

#include <string>

namespace tsl {
namespace {

std::string describeCompat(CompatError::Kind kind, int64_t schema) {
    switch (kind) {
        case CompatError::Kind::unsupportedSchema: return "unsupportedSchema(" + std::to_string(schema) + ")";
        case CompatError::Kind::tooLarge: return "tooLarge";
        case CompatError::Kind::notHTTPS: return "notHTTPS";
        case CompatError::Kind::badSignature: return "badSignature";
    }
    return "";
}

}  // namespace

CompatError::CompatError(Kind kind, int64_t schema)
    : Error(describeCompat(kind, kind == Kind::unsupportedSchema ? schema : 0)),
      kind(kind),
      schema(kind == Kind::unsupportedSchema ? schema : 0) {}

}  // namespace tsl
