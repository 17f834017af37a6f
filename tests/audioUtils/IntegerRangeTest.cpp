#include <cstdint>
#include <limits>

#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include "audioUtils/AudioDataStructures.h"
#include "support/LogCapture.h"

using audioUtils::findNearestInteger;
using audioUtils::IntegerRange;
using audioUtils::isIntegerInRange;
using miscUtils::Variant;
using miscUtils::VariantArray;
using miscUtils::VariantHash;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testSupport::LogCapture;

namespace {

constexpr int smallest = std::numeric_limits<int>::min();
constexpr int largest = std::numeric_limits<int>::max();

IntegerRange listOf(std::vector<int> values)
{
    return IntegerRange(std::move(values));
}

Variant arrayOf(std::initializer_list<Variant> elements)
{
    VariantArray array;
    for (const Variant& element : elements) {
        array.append(element);
    }
    return array;
}

/// The nearest value in the plain words of its definition: 32 bits that wrap.
int nearestInModel(int value, const std::vector<int>& list)
{
    const auto wrapped = [](std::int64_t wide) {
        return static_cast<int>(static_cast<std::uint32_t>(wide));
    };
    int best = value;
    int bestDistance = 0;
    bool first = true;
    for (const int element : list) {
        if (element == value) {
            return element;
        }
        int distance = wrapped(std::int64_t{value} - element);
        if (distance < 0) {
            distance = wrapped(-std::int64_t{distance});
        }
        if (first || distance < bestDistance) {
            best = element;
            bestDistance = distance;
        }
        first = false;
    }
    return best;
}

} // namespace

TEST(IntegerRange, IsEveryIntAtFirst)
{
    const IntegerRange range;
    EXPECT_EQ(range.getMinInteger(), smallest);
    EXPECT_EQ(range.getMaxInteger(), largest);
    EXPECT_FALSE(range.hasAllowedIntegers());
    for (const int value : {smallest, -1, 0, 48000, largest}) {
        EXPECT_TRUE(isIntegerInRange(value, range));
        EXPECT_EQ(findNearestInteger(value, range), value);
    }
    EXPECT_EQ(listOf({}), range);
}

TEST(IntegerRange, HoldsAnInterval)
{
    const IntegerRange range(8000, 96000);
    EXPECT_TRUE(isIntegerInRange(8000, range));
    EXPECT_TRUE(isIntegerInRange(96000, range));
    EXPECT_FALSE(isIntegerInRange(7999, range));
    EXPECT_FALSE(isIntegerInRange(96001, range));
    EXPECT_EQ(findNearestInteger(192000, range), 96000);
    EXPECT_EQ(findNearestInteger(-1, range), 8000);
    EXPECT_EQ(findNearestInteger(44100, range), 44100);
}

TEST(IntegerRange, KeepsAListAsItIs)
{
    const IntegerRange range = listOf({48000, 44100, 48000});
    EXPECT_EQ(range.getMinInteger(), 44100);
    EXPECT_EQ(range.getMaxInteger(), 48000);
    EXPECT_TRUE(range.hasAllowedIntegers());
    EXPECT_THAT(range.getAllowedIntegers(), ElementsAre(48000, 44100, 48000));
    EXPECT_NE(range, listOf({44100, 48000}));
    EXPECT_NE(listOf({44100, 48000}), listOf({48000, 44100}));
    EXPECT_NE(listOf({44100, 48000}), IntegerRange(44100, 48000));
}

TEST(IntegerRange, CopiesASpan)
{
    std::vector<int> values = {2, 1};
    const IntegerRange range{nonstd::span_lite::span<int>(values)};
    values[0] = 7;
    EXPECT_EQ(range, listOf({2, 1}));
}

TEST(IntegerRange, OfAListIsTheListAlone)
{
    const IntegerRange range = listOf({44100, 48000});
    EXPECT_TRUE(isIntegerInRange(48000, range));
    EXPECT_FALSE(isIntegerInRange(46000, range));
    EXPECT_EQ(findNearestInteger(47000, range), 48000);
    EXPECT_EQ(findNearestInteger(46050, range), 44100) << "of two equally near the first wins";
    EXPECT_EQ(findNearestInteger(46050, listOf({48000, 44100})), 48000);
    EXPECT_EQ(findNearestInteger(0, range), 44100);
}

TEST(IntegerRange, MeasuresDistancesIn32Bits)
{
    EXPECT_EQ(findNearestInteger(largest, listOf({0, smallest})), smallest) << "1 away, wrapped";
    EXPECT_EQ(findNearestInteger(0, listOf({1, smallest})), smallest)
        << "2^31 away, which wraps to less than nothing";
}

TEST(IntegerRangeDeathTest, HasItsLimitsInOrder)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(IntegerRange(2, 1),
                 "src/multilib/audioUtils/AudioDataStructures\\.cpp.*minInteger <= maxInteger");
    EXPECT_EQ(IntegerRange(2, 2).getMinInteger(), 2);
}

TEST(IntegerRange, WritesItself)
{
    EXPECT_EQ(IntegerRange(1, 8).toVariant(), (VariantHash{{"min", 1}, {"max", 8}}));
    EXPECT_EQ(listOf({48000, 44100}).toVariant(),
              (VariantHash{{"min", 44100}, {"max", 48000}, {"allowed", arrayOf({48000, 44100})}}));
    EXPECT_EQ(IntegerRange(1, 8).toVariant().asHash().size(), 2U);
}

TEST(IntegerRange, ReadsTheLimitsOutOfTheList)
{
    const LogCapture log("AudioUtils");
    IntegerRange range(1, 2);
    EXPECT_TRUE(range.fromVariant(VariantHash{{"allowed", arrayOf({32000, 16000})}}));
    EXPECT_EQ(range, listOf({32000, 16000}));
    EXPECT_THAT(log.lines(),
                ElementsAre("DEBUG integer range varianthash has no \"min\" field, but there is a "
                            "list of allowed integers - getting min value out of that list",
                            "DEBUG integer range varianthash has no \"max\" field, but there is a "
                            "list of allowed integers - getting max value out of that list"));
}

TEST(IntegerRange, BelievesWhatItReads)
{
    const LogCapture log("AudioUtils");
    IntegerRange range;
    EXPECT_TRUE(range.fromVariant(VariantHash{{"min", 10}, {"max", 5}, {"other", "key"}}));
    EXPECT_EQ(range.getMinInteger(), 10);
    EXPECT_EQ(range.getMaxInteger(), 5);
    EXPECT_EQ(findNearestInteger(7, range), 5) << "first up to the minimum, then down";
    EXPECT_EQ(findNearestInteger(20, range), 5);
    EXPECT_TRUE(range.fromVariant(
        VariantHash{{"min", 0}, {"max", 48000}, {"allowed", arrayOf({44100, 48000})}}));
    EXPECT_EQ(range.getMinInteger(), 0);
    EXPECT_FALSE(isIntegerInRange(0, range)) << "the list decides";
    EXPECT_TRUE(range.fromVariant(VariantHash{{"min", 0x1'0000'0001}, {"max", -1}}));
    EXPECT_EQ(range.getMinInteger(), 1) << "the low 32 bits";
    EXPECT_FALSE(range.hasAllowedIntegers());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(IntegerRange, SaysWhyItCantBeRead)
{
    const struct
    {
        Variant variant;
        const char* message;
    } cases[] = {
        {5L, "expected a varianthash, got a variant of type integer"},
        {Variant(), "expected a varianthash, got a variant of type invalid"},
        {VariantHash{{"allowed", 5}},
         "\"allowed\" field in integer range varianthash is not an array"},
        {VariantHash{{"min", 1}, {"max", 2}, {"allowed", arrayOf({1, "2"})}},
         "got an invalid value of type string (expected: integer) in integer range varianthash "
         "\"allowed\" array"},
        {VariantHash{{"max", 2}},
         "integer range varianthash has no \"min\" field, and there is no list of allowed "
         "integers"},
        {VariantHash{{"allowed", VariantArray()}},
         "integer range varianthash has no \"min\" field, and there is no list of allowed "
         "integers"},
        {VariantHash{{"min", 1}},
         "integer range varianthash has no \"max\" field, and there is no list of allowed "
         "integers"},
        {VariantHash{{"min", "8000"}, {"max", 9000}},
         "integer range \"min\" field has invalid value of type string (expected: integer)"},
        {VariantHash{{"min", 1}, {"max", VariantHash()}},
         "integer range \"max\" field has invalid value of type hash (expected: integer)"},
    };
    for (const auto& [variant, message] : cases) {
        const LogCapture log("AudioUtils");
        IntegerRange range = listOf({3, 4});
        EXPECT_FALSE(range.fromVariant(variant));
        EXPECT_EQ(range, listOf({3, 4}));
        EXPECT_THAT(log.lines(), ElementsAre(std::string("ERROR ") + message));
        EXPECT_THAT(log.records()[0].file,
                    EndsWith("src/multilib/audioUtils/AudioDataStructures.cpp"));
    }
}

RC_GTEST_PROP(IntegerRangeProperty, ReadsWhatItWrote, (const std::vector<int>& list, int a, int b))
{
    for (const IntegerRange& range : {listOf(list), IntegerRange(std::min(a, b), std::max(a, b))}) {
        IntegerRange out;
        RC_ASSERT(out.fromVariant(range.toVariant()));
        RC_ASSERT(out == range);
    }
}

RC_GTEST_PROP(IntegerRangeProperty, FindsTheNearest, (const std::vector<int>& list, int value))
{
    const auto extremes = rc::gen::element(smallest, smallest + 1, -1, 0, 1, largest);
    std::vector<int> values = *rc::gen::container<std::vector<int>>(extremes);
    values.insert(values.end(), list.begin(), list.end());
    for (const int wanted : {value, *extremes}) {
        RC_ASSERT(findNearestInteger(wanted, listOf(values)) == nearestInModel(wanted, values));
    }
}
