#include "miscUtils/Variant.h"

#include <cstdint>
#include <limits>
#include <sstream>
#include <type_traits>

#include <gmock/gmock.h>

using miscUtils::Variant;
using miscUtils::VariantArray;
using miscUtils::VariantHash;
using miscUtils::VariantType;
using testing::ElementsAre;

namespace {

template<typename T>
std::string print(const T& value)
{
    std::ostringstream out;
    out << value;
    return out.str();
}

VariantArray arrayOf(std::initializer_list<Variant> values)
{
    VariantArray array;
    for (const Variant& value : values) {
        array.append(value);
    }
    return array;
}

} // namespace

TEST(VariantType, NumbersOfArrayAndHashAreFixed)
{
    EXPECT_EQ(static_cast<int>(VariantType::Array), 6);
    EXPECT_EQ(static_cast<int>(VariantType::Hash), 7);
}

TEST(VariantType, PrintsReadableNames)
{
    EXPECT_EQ(print(VariantType::Invalid), "invalid");
    EXPECT_EQ(print(VariantType::Integer), "integer");
    EXPECT_EQ(print(VariantType::String), "string");
    EXPECT_EQ(print(VariantType::Array), "array");
    EXPECT_EQ(print(VariantType::Hash), "hash");
    EXPECT_EQ(print(static_cast<VariantType>(42)), "unknown kind 42");
}

TEST(Variant, KnowsItsKind)
{
    EXPECT_EQ(Variant().getType(), VariantType::Invalid);
    EXPECT_EQ(Variant(5L).getType(), VariantType::Integer);
    EXPECT_EQ(Variant("text").getType(), VariantType::String);
    EXPECT_EQ(Variant(VariantArray()).getType(), VariantType::Array);
    EXPECT_EQ(Variant(VariantHash()).getType(), VariantType::Hash);
    EXPECT_FALSE(Variant().isValid());
    EXPECT_TRUE(Variant(0L).isValid());
    EXPECT_TRUE(Variant("").isValid());
    EXPECT_TRUE(Variant(VariantHash()).isValid());
}

TEST(Variant, StoresIntegersWith64Bits)
{
    for (const long value :
         {0L, -1L, std::numeric_limits<long>::min(), std::numeric_limits<long>::max()}) {
        EXPECT_EQ(Variant(value).asInteger(), value);
    }
    EXPECT_EQ(Variant(0).asInteger(), 0);
    EXPECT_EQ(Variant(std::numeric_limits<std::uint32_t>::max()).asInteger(), 4294967295L);
    static_assert(!std::is_constructible_v<Variant, unsigned long>, "might not fit");
    static_assert(!std::is_constructible_v<Variant, bool>);
    static_assert(!std::is_constructible_v<Variant, double>);
}

TEST(Variant, ConvertsNoKindIntoAnother)
{
    EXPECT_EQ(Variant("5").asInteger(), std::nullopt);
    EXPECT_EQ(Variant(5L).asString(), std::nullopt);
    EXPECT_EQ(Variant().asInteger(), std::nullopt);
    EXPECT_EQ(Variant().asString(), std::nullopt);
    EXPECT_EQ(Variant(VariantArray()).asInteger(), std::nullopt);
    EXPECT_EQ(Variant(VariantHash()).asString(), std::nullopt);
    EXPECT_EQ(Variant("text").asString(), "text");
}

TEST(Variant, OfAnotherKindGivesEmptyContainers)
{
    for (const Variant& value :
         {Variant(), Variant(5L), Variant("text"), Variant(VariantHash{{"a", 1}})}) {
        EXPECT_TRUE(value.asArray().empty());
    }
    for (const Variant& value : {Variant(), Variant(5L), Variant("text"), Variant(arrayOf({1}))}) {
        EXPECT_TRUE(value.asHash().empty());
    }
}

TEST(Variant, FromANullPointerIsInvalid)
{
    const char* text = nullptr;
    EXPECT_FALSE(Variant(text).isValid());
}

TEST(Variant, CopiesAreIndependent)
{
    VariantHash hash{{"a", 1}};
    const Variant original(hash);
    Variant copy = original;
    hash["a"] = 2;
    EXPECT_EQ(copy, original);
    EXPECT_EQ(copy.asHash().get("a"), Variant(1));
    copy = Variant("other");
    EXPECT_EQ(original.asHash().get("a"), Variant(1));
}

TEST(Variant, MovesItsContainers)
{
    Variant source(arrayOf({1, "two"}));
    const Variant* elements = &*source.asArray().begin();
    Variant target(std::move(source));
    EXPECT_EQ(&*target.asArray().begin(), elements) << "moved, not copied";
    Variant assigned;
    assigned = std::move(target);
    EXPECT_EQ(&*assigned.asArray().begin(), elements);
    static_assert(std::is_nothrow_move_constructible_v<Variant>);
    static_assert(std::is_nothrow_move_assignable_v<Variant>);
}

TEST(Variant, ComparesByKindAndValue)
{
    EXPECT_EQ(Variant(), Variant());
    EXPECT_NE(Variant(), Variant(0));
    EXPECT_EQ(Variant(5), Variant(5L));
    EXPECT_NE(Variant(5), Variant(6));
    EXPECT_NE(Variant(5), Variant("5"));
    EXPECT_EQ(Variant(arrayOf({1, "two"})), Variant(arrayOf({1, "two"})));
    EXPECT_NE(Variant(arrayOf({1, 2})), Variant(arrayOf({2, 1})));
    EXPECT_NE(Variant(arrayOf({1})), Variant(arrayOf({1, 1})));
    EXPECT_EQ(Variant(VariantHash{{"a", 1}, {"b", 2}}), Variant(VariantHash{{"b", 2}, {"a", 1}}));
    EXPECT_NE(Variant(VariantHash{{"a", 1}}), Variant(VariantHash{{"a", 2}}));
    EXPECT_NE(Variant(VariantArray()), Variant(VariantHash()));
}

TEST(Variant, PrintsOnOneLine)
{
    EXPECT_EQ(print(Variant()), "invalid");
    EXPECT_EQ(print(Variant(-7)), "-7");
    EXPECT_EQ(print(Variant(9'223'372'036'854'775'807)), "9223372036854775807");
    EXPECT_EQ(print(Variant("a \"b\"")), R"("a \"b\"")");
    EXPECT_EQ(print(Variant(VariantArray())), "[]");
    EXPECT_EQ(print(Variant(VariantHash{{"rates", arrayOf({1, "x"})}, {"max", 8}})),
              R"({"max": 8, "rates": [1, "x"]})");
}

TEST(VariantArray, KeepsTheOrder)
{
    VariantArray array;
    array.append(3);
    array.append("two");
    array.append(1);
    EXPECT_THAT(array, ElementsAre(Variant(3), Variant("two"), Variant(1)));
    EXPECT_EQ(array.size(), 3U);
    const VariantArray moved(std::move(array));
    EXPECT_EQ(moved.size(), 3U);
}

TEST(VariantHash, FindsWhatItHolds)
{
    const VariantHash hash{{"min", 1}, {"max", 8L}, {"name", "range"}};
    EXPECT_TRUE(hash.contains("min"));
    EXPECT_FALSE(hash.contains("Min"));
    EXPECT_EQ(hash.get("max").asInteger(), 8);
    EXPECT_EQ(hash.get("name").asString(), "range");
}

TEST(VariantHash, GettingAMissingKeyGivesAnInvalidValueAndInsertsNothing)
{
    VariantHash hash{{"min", 1}};
    EXPECT_FALSE(hash.get("max").isValid());
    EXPECT_FALSE(hash.contains("max"));
    EXPECT_EQ(hash.size(), 1U);
    EXPECT_FALSE(VariantHash().get("").isValid());
}

TEST(VariantHash, IndexingInsertsAndChanges)
{
    VariantHash hash;
    EXPECT_FALSE(hash["a"].isValid());
    EXPECT_TRUE(hash.contains("a"));
    hash["a"] = 5;
    hash["b"] = "text";
    EXPECT_EQ(hash, (VariantHash{{"a", 5}, {"b", "text"}}));
}

TEST(VariantHash, OfAKeyGivenTwiceKeepsTheFirst)
{
    EXPECT_EQ((VariantHash{{"a", 1}, {"a", 2}}), (VariantHash{{"a", 1}}));
}

TEST(VariantHash, NestsToAnyDepth)
{
    Variant value = 0;
    for (int depth = 0; depth < 100; ++depth) {
        value = VariantHash{{"inner", value}};
    }
    for (int depth = 0; depth < 100; ++depth) {
        value = Variant(value.asHash().get("inner"));
    }
    EXPECT_EQ(value, Variant(0));
}
