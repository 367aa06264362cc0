// One rule for "is this an integer" wherever JSON is read: a number that is
// whole and in range, never a Boolean, a fraction or a string.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "TslCore/Compat/CompatDatabase.h"
#include "TslCore/Diagnostics/DiagnosticsTestEvents.h"
#include "TslCore/Diagnostics/ProblemReport.h"
#include "TslCore/Diagnostics/SchemaNode.h"
#include "TslCore/Support/JSONInteger.h"

using namespace tsl;
using nlohmann::json;

namespace {

const std::vector<json> notIntegers{json(1.5), json(true), json("1"), json(18446744073709551615ull), json(nullptr)};

CompatDatabase compatWithSchema(const json& schema) {
    const std::string text = json{{"schema", schema}, {"apps", json::array()}}.dump();
    return CompatDatabase::decode({reinterpret_cast<const uint8_t*>(text.data()), text.size()});
}

ProblemReport reportWithSchema(const json& schema) {
    const ProblemReport full(std::nullopt, ProblemReport::Category::crash, "Crashed.", test::appPart(),
                             std::vector{test::appEvent()});
    const Bytes bytes = full.encoded();
    json j = json::parse(bytes.begin(), bytes.end());
    j["diagnostics"]["schema"] = schema;
    return j.get<ProblemReport>();
}

}  // namespace

TEST(JSONInteger, EveryReaderTakesWholeNumbersOnly) {
    EXPECT_EQ(compatWithSchema(json(1.0)).schema, 1);
    EXPECT_EQ(reportWithSchema(json(1.0)).diagnostics->schema, 1);
    EXPECT_EQ(SchemaJSON::integer(json(1.0)), 1);
    for (const json& value : notIntegers) {
        SCOPED_TRACE(value.dump());
        EXPECT_EQ(jsonInteger<int64_t>(value), std::nullopt);
        EXPECT_ANY_THROW(compatWithSchema(value));
        EXPECT_ANY_THROW(reportWithSchema(value)) << "was truncated or wrapped";
        EXPECT_EQ(SchemaJSON::integer(value), std::nullopt);
    }
}
