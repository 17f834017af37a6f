#include "miscUtils/Json.h"

#include <limits>
#include <ostream>
#include <string>

#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include "support/RandomVariant.h"

using miscUtils::fromJson;
using miscUtils::JsonError;
using miscUtils::toJson;
using miscUtils::Variant;
using miscUtils::VariantArray;
using miscUtils::VariantHash;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

Variant read(const std::string& json)
{
    Variant value = "untouched";
    JsonError error;
    EXPECT_TRUE(fromJson(value, error, json))
        << error.line << ":" << error.column << ": " << error.message;
    return value;
}

VariantArray arrayOf(std::initializer_list<Variant> elements)
{
    VariantArray array;
    for (const Variant& element : elements) {
        array.append(element);
    }
    return array;
}

} // namespace

TEST(Json, WritesEveryKind)
{
    EXPECT_EQ(toJson(Variant()), "null");
    EXPECT_EQ(toJson(-5L), "-5");
    EXPECT_EQ(toJson("a \"b\"\n"), R"("a \"b\"\n")");
    EXPECT_EQ(toJson(VariantArray()), "[]");
    EXPECT_EQ(toJson(VariantHash()), "{}");
    const VariantHash hash{{"min", 1}, {"list", arrayOf({1, "two", VariantHash()})}};
    EXPECT_EQ(toJson(hash), R"({"list":[1,"two",{}],"min":1})");
    EXPECT_EQ(toJson(VariantHash{{"min", 1}}, 2), "{\n  \"min\": 1\n}");
}

TEST(Json, ReadsEveryKind)
{
    EXPECT_EQ(read(" null "), Variant());
    EXPECT_EQ(read("-9223372036854775808"), std::numeric_limits<long>::min());
    EXPECT_EQ(read("9223372036854775807"), std::numeric_limits<long>::max());
    EXPECT_EQ(read(R"("a\u00e4")"), "a\u00e4");
    EXPECT_EQ(read(R"([1, [], {"a": "b"}])"),
              arrayOf({1, VariantArray(), VariantHash{{"a", "b"}}}));
}

TEST(Json, TellsWhereAndWhyATextIsWrong)
{
    const struct
    {
        std::string json;
        std::size_t line;
        std::size_t column;
        const char* message;
    } cases[] = {
        {"", 1, 1, "syntax error"},
        {"{", 1, 1, "syntax error"},
        {"{\"a\": 1,\n \"b\" 2}", 2, 7, "syntax error"},
        {"[1,\n2,\n  x]", 3, 3, "syntax error"},
        {"[1,\n x,\n2,\n3]", 2, 2, "syntax error"},
        {"[true]", 1, 5, "truth values are not supported"},
        {"1.5", 1, 3, "only 64-bit integers are supported"},
        {"9223372036854775808", 1, 19, "does not fit into 64 bits"},
        {"123456789012345678901234567890", 1, 30, "only 64-bit integers"},
        {"1e999", 1, 5, "number overflow parsing '1e999'"},
        {"{\"a\": 1,\n\"a\": 2}", 2, 3, "the key \"a\" occurs twice"},
        {"[1] 2", 1, 5, "syntax error"},
        {"[\"\xFF\"]", 1, 3, "invalid string"},
    };
    for (const auto& [json, line, column, message] : cases) {
        Variant value = "untouched";
        JsonError error;
        EXPECT_FALSE(fromJson(value, error, json)) << json;
        EXPECT_THAT(error.message, HasSubstr(message)) << json;
        EXPECT_EQ(error.line, line) << json << ": " << error.message;
        EXPECT_EQ(error.column, column) << json << ": " << error.message;
        EXPECT_EQ(value, "untouched") << json;
    }
}

TEST(Json, BeginsItsMessagesWithWhatIsWrong)
{
    Variant value;
    JsonError error;
    EXPECT_FALSE(fromJson(value, error, "[1,\n2,\n  x]"));
    EXPECT_THAT(error.message, StartsWith("syntax error while parsing value"))
        << "where, it tells apart";
}

TEST(Json, RefusesWhatWouldOverflowTheStack)
{
    const auto nested = [](std::size_t levels) {
        return std::string(levels, '[') + std::string(levels, ']');
    };
    Variant value;
    JsonError error;
    EXPECT_TRUE(fromJson(value, error, nested(100)));
    EXPECT_FALSE(fromJson(value, error, nested(101)));
    EXPECT_EQ(error.message, "nested too deeply");
    EXPECT_FALSE(fromJson(value, error, std::string(1'000'000, '[')));
}

TEST(Json, ReplacesWhatIsNoText)
{
    EXPECT_EQ(toJson("a\xFF"), "\"a\uFFFD\"");
}

RC_GTEST_PROP(JsonProperty, ReadsWhatItWrote, (bool indented))
{
    const Variant value = *testSupport::anyVariant();
    Variant out;
    JsonError error;
    RC_ASSERT(fromJson(out, error, toJson(value, indented ? 4 : -1)));
    RC_ASSERT(out == value);
}

RC_GTEST_PROP(JsonProperty, NeverThrows, (const std::string& text))
{
    Variant out;
    JsonError error;
    if (!fromJson(out, error, text)) {
        RC_ASSERT(!error.message.empty());
        RC_ASSERT(error.line >= 1U);
        RC_ASSERT(error.column >= 1U);
    }
}
