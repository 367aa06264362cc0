#include "TslCore/Support/JSONFields.h"

#include <cmath>

#include "TslCore/Support/Base64.h"

namespace tsl::JSONFields {

std::string Path::text() const {
    if (!parent) return {};
    std::string head = parent->text();
    if (key.empty()) return head + "[" + std::to_string(index) + "]";
    return head.empty() ? std::string(key) : head + "." + std::string(key);
}

DecodeError::DecodeError(std::string problem, std::string path)
    : Error(path.empty() ? problem : problem + " at " + path), problem(std::move(problem)), path(std::move(path)) {}

void fail(const std::string& problem, const Path& at) { throw DecodeError(problem, at.text()); }

void mismatch(const char* expected, const json& value, const Path& at) {
    fail(std::string("expected ") + expected + ", found " + value.type_name(), at);
}

void checkDepth(const Path& at) {
    // Without the path, which would be as long as the nesting.
    if (at.depth > maxDepth) throw DecodeError("nesting deeper than " + std::to_string(maxDepth) + " levels", "");
}

json::other_error libraryError(const DecodeError& error) {
    return json::other_error::create(501, error.description(), nullptr);
}

json toJSON(bool value) { return value; }

json toJSON(const std::string& value) { return value; }

json toJSON(double value) {
    if (!std::isfinite(value)) throw EncodeError("cannot encode the non-finite number " + std::to_string(value));
    // As long as the integer is exact.
    if (value == std::trunc(value) && std::fabs(value) < 0x1p53) return json::number_integer_t(value);
    return value;
}

json toJSON(const Bytes& value) { return Base64::encode(value); }

json toJSON(Date value) { return ISO8601::format(value); }

json toJSON(std::chrono::system_clock::time_point value) { return ISO8601::format(value); }

void fromJSON(const json& j, const Path& at, double& out) {
    if (!j.is_number()) mismatch("a number", j, at);
    out = j.get<double>();
}

void bytesFromJSON(const json& j, const Path& at, Bytes& out) {
    const std::string* text = j.get_ptr<const json::string_t*>();
    if (!text) mismatch("a string", j, at);
    std::optional<Bytes> bytes = Base64::decode(*text);
    if (!bytes) fail("invalid Base64", at);
    out = std::move(*bytes);
}

void fromJSON(const json& j, const Path& at, Date& out) {
    const std::string* text = j.get_ptr<const json::string_t*>();
    if (!text) mismatch("a string", j, at);
    std::optional<Date> date = ISO8601::parse(*text);
    if (!date) fail("not an ISO 8601 date: " + j.dump(), at);
    out = *date;
}

void fromJSON(const json& j, const Path& at, std::chrono::system_clock::time_point& out) {
    Date date;
    fromJSON(j, at, date);
    const auto time = ISO8601::clockTime(date);
    if (!time) fail("a date the clock cannot hold: " + j.dump(), at);
    out = *time;
}

}  // namespace tsl::JSONFields
