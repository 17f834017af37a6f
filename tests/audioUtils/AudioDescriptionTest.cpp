// PCM and DSD descriptions, which follow the same rules under other names.

#include <concepts>
#include <limits>
#include <type_traits>

#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include "audioUtils/DsdDataStructures.h"
#include "audioUtils/PcmDataStructures.h"
#include "support/LogCapture.h"

using namespace audioUtils;
using miscUtils::Variant;
using miscUtils::VariantArray;
using miscUtils::VariantHash;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testSupport::LogCapture;

namespace {

struct Pcm
{
    using Info = PcmAudioInfo;
    using Capabilities = PcmAudioCapabilities;
    using Format = PcmFormat;
    static constexpr Format first = S16LE;
    static constexpr Format second = F32LE;
    static constexpr const char* name = "PCM";
    static constexpr const char* className = "Pcm";
    static constexpr const char* type = "pcm";
    static constexpr const char* firstName = "S16LE";
    static constexpr const char* rateKey = "sampleRate";
    static constexpr const char* formatKey = "pcmFormat";
    static std::vector<Format> all() { return getAllPcmFormats(); }
    static Capabilities allPossible() { return getAllPossiblePcmCapabilities(); }
    static int rate(const Info& info) { return info.getSampleRate(); }
    static Format format(const Info& info) { return info.getPcmFormat(); }
    static void set(Info& info, int rate, Format format)
    {
        info.setSampleRate(rate);
        info.setPcmFormat(format);
    }
    static const IntegerRange& rates(const Capabilities& c) { return c.getSampleRates(); }
    static const std::vector<Format>& formats(const Capabilities& c) { return c.getPcmFormats(); }
};

struct Dsd
{
    using Info = DsdAudioInfo;
    using Capabilities = DsdAudioCapabilities;
    using Format = DsdFormat;
    static constexpr Format first = DSDU8;
    static constexpr Format second = DSDU32BE;
    static constexpr const char* name = "DSD";
    static constexpr const char* className = "Dsd";
    static constexpr const char* type = "dsd";
    static constexpr const char* firstName = "DSDU8";
    static constexpr const char* rateKey = "bitrate";
    static constexpr const char* formatKey = "dsdFormat";
    static std::vector<Format> all() { return getAllDsdFormats(); }
    static Capabilities allPossible() { return getAllPossibleDsdCapabilities(); }
    static int rate(const Info& info) { return info.getBitrate(); }
    static Format format(const Info& info) { return info.getDsdFormat(); }
    static void set(Info& info, int rate, Format format)
    {
        info.setBitrate(rate);
        info.setDsdFormat(format);
    }
    static const IntegerRange& rates(const Capabilities& c) { return c.getBitrates(); }
    static const std::vector<Format>& formats(const Capabilities& c) { return c.getDsdFormats(); }
};

VariantArray arrayOf(std::initializer_list<Variant> elements)
{
    VariantArray array;
    for (const Variant& element : elements) {
        array.append(element);
    }
    return array;
}

template<typename Family>
class AudioDescription : public testing::Test
{
protected:
    static std::string ratesKey() { return std::string(Family::rateKey) + "s"; }
    static std::string formatsKey() { return std::string(Family::formatKey) + "s"; }
    static std::string configuration()
    {
        return std::string("ERROR ") + Family::name + " configuration varianthash has ";
    }
    static std::string capabilities()
    {
        return std::string("ERROR ") + Family::name + " capabilities varianthash has no ";
    }

    static typename Family::Capabilities some()
    {
        return {IntegerRange(std::vector<int>{44100, 48000}), IntegerRange(1, 2), {Family::first}};
    }

    /// Where the last line came from: the function that was called, in the family's own source.
    void expectFrom(const std::string& source, const std::string& function) const
    {
        const testSupport::LogRecord record = log.records().back();
        EXPECT_THAT(record.file, EndsWith("src/multilib/audioUtils/" + source)) << record;
        EXPECT_THAT(record.function, HasSubstr(function + "(const miscUtils::Variant")) << record;
        EXPECT_GT(record.line, 0) << record;
    }
    static std::string source() { return Family::className + std::string("DataStructures.cpp"); }

    LogCapture log{"AudioUtils"};
};

using Families = testing::Types<Pcm, Dsd>;
TYPED_TEST_SUITE(AudioDescription, Families);

} // namespace

TYPED_TEST(AudioDescription, IsNothingAtFirst)
{
    const typename TypeParam::Info info;
    EXPECT_EQ(info.getAudioType(), TypeParam::type);
    EXPECT_EQ(TypeParam::rate(info), 0);
    EXPECT_EQ(info.getNumChannels(), 0);
    EXPECT_EQ(TypeParam::format(info), TypeParam::first);
    EXPECT_FALSE(info.isValid());

    const typename TypeParam::Capabilities capabilities;
    EXPECT_EQ(capabilities.getAudioType(), TypeParam::type);
    EXPECT_EQ(TypeParam::rates(capabilities), IntegerRange());
    EXPECT_EQ(capabilities.getNumChannels(), IntegerRange());
    EXPECT_THAT(TypeParam::formats(capabilities), IsEmpty());
}

TYPED_TEST(AudioDescription, IsValidWithARateAndAChannel)
{
    using Info = typename TypeParam::Info;
    EXPECT_TRUE(Info(48000, 2, TypeParam::first).isValid());
    EXPECT_TRUE(Info(1, 1, static_cast<typename TypeParam::Format>(99)).isValid());
    EXPECT_FALSE(Info(48000, 0, TypeParam::first).isValid());
    EXPECT_FALSE(Info(0, 2, TypeParam::first).isValid());
    EXPECT_FALSE(Info(-48000, -2, TypeParam::first).isValid());
}

TYPED_TEST(AudioDescription, IsComparedFieldByField)
{
    using Info = typename TypeParam::Info;
    const Info info(48000, 2, TypeParam::first);
    EXPECT_EQ(info, Info(48000, 2, TypeParam::first));
    EXPECT_NE(info, Info(48001, 2, TypeParam::first));
    EXPECT_NE(info, Info(48000, 1, TypeParam::first));
    EXPECT_NE(info, Info(48000, 2, TypeParam::second));

    using Capabilities = typename TypeParam::Capabilities;
    const Capabilities capabilities = this->some();
    EXPECT_EQ(capabilities, this->some());
    EXPECT_NE(capabilities,
              Capabilities(IntegerRange(44100, 48000), IntegerRange(1, 2), {TypeParam::first}));
    EXPECT_NE(capabilities,
              Capabilities(TypeParam::rates(capabilities), IntegerRange(1, 3), {TypeParam::first}));
    EXPECT_NE(capabilities, Capabilities(TypeParam::rates(capabilities), IntegerRange(1, 2),
                                         {TypeParam::second}));
}

TYPED_TEST(AudioDescription, KeepsWhatItsSettersAreTold)
{
    typename TypeParam::Info info;
    TypeParam::set(info, -5, TypeParam::second);
    info.setNumChannels(-7);
    EXPECT_EQ(info, (typename TypeParam::Info(-5, -7, TypeParam::second)));
}

TYPED_TEST(AudioDescription, KeepsItsTypeWhenMovedFrom)
{
    typename TypeParam::Info info(48000, 2, TypeParam::second);
    const typename TypeParam::Info moved = std::move(info);
    EXPECT_EQ(moved.getAudioType(), TypeParam::type);
    EXPECT_EQ(info.getAudioType(), TypeParam::type);
    EXPECT_EQ(TypeParam::rate(moved), 48000);
    info = moved;
    EXPECT_EQ(info, moved);

    typename TypeParam::Capabilities capabilities = this->some();
    const typename TypeParam::Capabilities movedCapabilities = std::move(capabilities);
    EXPECT_EQ(capabilities.getAudioType(), TypeParam::type);
    EXPECT_EQ(movedCapabilities, this->some());
    capabilities = movedCapabilities;
    EXPECT_EQ(capabilities, this->some());
}

TYPED_TEST(AudioDescription, IsCompatibleWhenAllIsSupported)
{
    using Info = typename TypeParam::Info;
    const typename TypeParam::Capabilities capabilities = this->some();
    EXPECT_TRUE(isAudioInfoCompatible(Info(48000, 2, TypeParam::first), capabilities));
    EXPECT_FALSE(isAudioInfoCompatible(Info(46050, 2, TypeParam::first), capabilities));
    EXPECT_FALSE(isAudioInfoCompatible(Info(48000, 6, TypeParam::first), capabilities));
    EXPECT_FALSE(isAudioInfoCompatible(Info(48000, 2, TypeParam::second), capabilities));
    EXPECT_FALSE(isAudioInfoCompatible(Info(48000, 2, TypeParam::first),
                                       typename TypeParam::Capabilities()));
}

TYPED_TEST(AudioDescription, MovesToTheNearestThatIsSupported)
{
    using Info = typename TypeParam::Info;
    Info info(46050, 6, TypeParam::first);
    EXPECT_TRUE(pickNearestAudioInfo(info, this->some()));
    EXPECT_EQ(info, Info(44100, 2, TypeParam::first));

    Info other(46050, 6, TypeParam::second);
    EXPECT_FALSE(pickNearestAudioInfo(other, this->some()));
    EXPECT_EQ(other, Info(46050, 6, TypeParam::second)) << "no format is near another";
}

TYPED_TEST(AudioDescription, KnowsAllThatIsPossible)
{
    using Info = typename TypeParam::Info;
    const typename TypeParam::Capabilities all = TypeParam::allPossible();
    constexpr int largest = std::numeric_limits<int>::max();
    EXPECT_EQ(TypeParam::rates(all), IntegerRange(1, largest));
    EXPECT_EQ(all.getNumChannels(), IntegerRange(1, largest));
    EXPECT_EQ(TypeParam::formats(all), TypeParam::all());
    for (const auto format : TypeParam::all()) {
        EXPECT_TRUE(isAudioInfoCompatible(Info(1, 1, format), all));
        EXPECT_TRUE(isAudioInfoCompatible(Info(largest, largest, format), all));
    }
    EXPECT_FALSE(isAudioInfoCompatible(Info(0, 1, TypeParam::first), all));
    EXPECT_FALSE(isAudioInfoCompatible(Info(1, 0, TypeParam::first), all));
}

TYPED_TEST(AudioDescription, WritesItself)
{
    using Info = typename TypeParam::Info;
    EXPECT_EQ(Info(48000, 2, TypeParam::first).toVariant(),
              (VariantHash{{TypeParam::rateKey, 48000},
                           {"numChannels", 2},
                           {TypeParam::formatKey, TypeParam::firstName}}));
    const auto none = static_cast<typename TypeParam::Format>(99);
    EXPECT_EQ(Info(1, 1, none).toVariant().asHash().get(TypeParam::formatKey), "<unknown>");

    const auto capabilities = this->some();
    EXPECT_EQ(capabilities.toVariant(),
              (VariantHash{{this->ratesKey(), TypeParam::rates(capabilities).toVariant()},
                           {"numChannels", IntegerRange(1, 2).toVariant()},
                           {this->formatsKey(), arrayOf({TypeParam::firstName})}}));
    EXPECT_EQ(typename TypeParam::Capabilities().toVariant().asHash().get(this->formatsKey()),
              VariantArray());
}

TYPED_TEST(AudioDescription, ReadsWithoutJudging)
{
    typename TypeParam::Info info;
    EXPECT_TRUE(info.fromVariant(VariantHash{{TypeParam::rateKey, 0x1'0000'0000},
                                             {"numChannels", -1},
                                             {TypeParam::formatKey, TypeParam::firstName},
                                             {"other", "key"}}));
    EXPECT_EQ(info, (typename TypeParam::Info(0, -1, TypeParam::first)));
    EXPECT_THAT(this->log.lines(), IsEmpty());
}

TYPED_TEST(AudioDescription, SaysWhyAnInfoCantBeRead)
{
    const std::string rate = TypeParam::rateKey;
    const std::string format = TypeParam::formatKey;
    using Info = typename TypeParam::Info;
    const Info before(1, 2, TypeParam::second);
    const struct
    {
        Variant variant;
        std::string message;
        Info left;
    } cases[] = {
        {"text", "ERROR expected a varianthash, got a variant of type string", before},
        {VariantHash{{"numChannels", 7}, {format, TypeParam::firstName}},
         this->configuration() + "no or invalid \"" + rate + "\" field", before},
        {VariantHash{{rate, 44100}, {format, TypeParam::firstName}},
         this->configuration() + "no or invalid \"numChannels\" field",
         Info(44100, 2, TypeParam::second)},
        {VariantHash{{rate, 44100}, {"numChannels", 7}, {format, 5}},
         this->configuration() + "no or invalid \"" + format + "\" field",
         Info(44100, 7, TypeParam::second)},
        {VariantHash{{rate, 44100}, {"numChannels", 7}, {format, "S16_LE"}},
         this->configuration() + TypeParam::name + " format value \"S16_LE\" which isn't a valid " +
             TypeParam::name + " format string",
         Info(44100, 7, TypeParam::second)},
    };
    for (const auto& [variant, message, left] : cases) {
        Info info = before;
        EXPECT_FALSE(info.fromVariant(variant));
        EXPECT_EQ(info, left) << message;
        this->expectFrom(this->source(),
                         TypeParam::className + std::string("AudioInfo::fromVariant"));
        EXPECT_THAT(this->log.takeLines(), ElementsAre(message));
    }
}

TYPED_TEST(AudioDescription, SaysWhyCapabilitiesCantBeRead)
{
    using Capabilities = typename TypeParam::Capabilities;
    const std::string rates = this->ratesKey();
    const std::string formats = this->formatsKey();
    const Variant good = IntegerRange(3, 4).toVariant();
    const Capabilities before = this->some();
    const Capabilities rateRead(IntegerRange(3, 4), before.getNumChannels(), {TypeParam::first});
    const Capabilities bothRead(IntegerRange(3, 4), IntegerRange(3, 4), {TypeParam::first});
    const struct
    {
        Variant variant;
        std::string message;
        Capabilities left;
        bool isOfRange = false; // what can't be read
    } cases[] = {
        {Variant(), "ERROR expected a varianthash, got a variant of type invalid", before},
        {VariantHash{{"numChannels", good}}, this->capabilities() + "\"" + rates + "\" field",
         before},
        {VariantHash{{rates, 5}}, "ERROR expected a varianthash, got a variant of type integer",
         before, true},
        {VariantHash{{rates, good}}, this->capabilities() + "\"numChannels\" field", rateRead},
        {VariantHash{{rates, good}, {"numChannels", good}},
         this->capabilities() + "or invalid \"" + formats + "\" field (expected: array of strings)",
         bothRead},
        {VariantHash{
             {rates, good}, {"numChannels", good}, {formats, arrayOf({TypeParam::firstName, 5})}},
         "ERROR got an invalid value of type integer (expected: string) in capabilities "
         "varianthash \"" +
             formats + "\" array",
         Capabilities(IntegerRange(3, 4), IntegerRange(3, 4),
                      {TypeParam::first, TypeParam::first})},
        {VariantHash{{rates, good},
                     {"numChannels", good},
                     {formats, arrayOf({TypeParam::firstName, "S16_LE"})}},
         "ERROR the value \"S16_LE\" in \"" + formats + "\" array is not a valid " +
             TypeParam::name + " format string",
         Capabilities(IntegerRange(3, 4), IntegerRange(3, 4),
                      {TypeParam::first, TypeParam::first})},
    };
    for (const auto& [variant, message, left, isOfRange] : cases) {
        Capabilities capabilities = before;
        EXPECT_FALSE(capabilities.fromVariant(variant));
        EXPECT_EQ(capabilities, left) << message;
        if (isOfRange) {
            this->expectFrom("AudioDataStructures.cpp", "IntegerRange::fromVariant");
        } else {
            this->expectFrom(this->source(),
                             TypeParam::className + std::string("AudioCapabilities::fromVariant"));
        }
        EXPECT_THAT(this->log.takeLines(), ElementsAre(message));
    }
}

TYPED_TEST(AudioDescription, AppendsFormatsToThoseThatItHas)
{
    auto capabilities = this->some();
    EXPECT_TRUE(capabilities.fromVariant(capabilities.toVariant()));
    EXPECT_THAT(TypeParam::formats(capabilities), ElementsAre(TypeParam::first, TypeParam::first));
    VariantHash hash = this->some().toVariant().asHash();
    hash[this->formatsKey()] = "no array";
    EXPECT_TRUE(capabilities.fromVariant(hash)) << "what is no array holds no formats";
    EXPECT_EQ(TypeParam::formats(capabilities).size(), 2U);
}

namespace {

template<typename Family>
void readsWhatItWrote()
{
    const auto formats = rc::gen::elementOf(Family::all());
    const typename Family::Info info(*rc::gen::arbitrary<int>(), *rc::gen::arbitrary<int>(),
                                     *formats);
    typename Family::Info read;
    RC_ASSERT(read.fromVariant(info.toVariant()));
    RC_ASSERT(read == info);

    const typename Family::Capabilities capabilities(
        IntegerRange(*rc::gen::arbitrary<std::vector<int>>()),
        IntegerRange(*rc::gen::arbitrary<std::vector<int>>()),
        *rc::gen::container<std::vector<typename Family::Format>>(formats));
    typename Family::Capabilities readCapabilities;
    RC_ASSERT(readCapabilities.fromVariant(capabilities.toVariant()));
    RC_ASSERT(readCapabilities == capabilities);
}

/// A hash from which some fields are missing: what was read before the first of them has changed.
template<typename Family>
void changesFieldAfterField()
{
    LogCapture log("AudioUtils", log4cplus::OFF_LOG_LEVEL);
    const bool hasRate = *rc::gen::arbitrary<bool>();
    const bool hasChannels = *rc::gen::arbitrary<bool>();
    const bool hasFormat = *rc::gen::arbitrary<bool>();
    VariantHash hash;
    if (hasRate) {
        hash[Family::rateKey] = 100;
    }
    if (hasChannels) {
        hash["numChannels"] = 200;
    }
    if (hasFormat) {
        hash[Family::formatKey] = toString(Family::second);
    }
    typename Family::Info info(1, 2, Family::first);
    RC_ASSERT(info.fromVariant(hash) == (hasRate && hasChannels && hasFormat));
    RC_ASSERT(Family::rate(info) == (hasRate ? 100 : 1));
    RC_ASSERT(info.getNumChannels() == (hasRate && hasChannels ? 200 : 2));
    RC_ASSERT(Family::format(info) ==
              (hasRate && hasChannels && hasFormat ? Family::second : Family::first));
}

template<typename Family>
void isCompatibleWithTheNearest()
{
    auto rates = *rc::gen::arbitrary<std::vector<int>>();
    const typename Family::Capabilities capabilities(IntegerRange(std::move(rates)),
                                                     IntegerRange(1, 8), Family::all());
    typename Family::Info info(*rc::gen::arbitrary<int>(), *rc::gen::arbitrary<int>(),
                               Family::second);
    const bool wasCompatible = isAudioInfoCompatible(info, capabilities);
    const typename Family::Info before = info;
    RC_ASSERT(pickNearestAudioInfo(info, capabilities));
    RC_ASSERT(isAudioInfoCompatible(info, capabilities));
    RC_ASSERT((info == before) == wasCompatible);
}

} // namespace

RC_GTEST_PROP(PcmDescriptionProperty, ReadsWhatItWrote, ())
{
    readsWhatItWrote<Pcm>();
}
RC_GTEST_PROP(DsdDescriptionProperty, ReadsWhatItWrote, ())
{
    readsWhatItWrote<Dsd>();
}
RC_GTEST_PROP(PcmDescriptionProperty, ChangesFieldAfterField, ())
{
    changesFieldAfterField<Pcm>();
}
RC_GTEST_PROP(DsdDescriptionProperty, ChangesFieldAfterField, ())
{
    changesFieldAfterField<Dsd>();
}
RC_GTEST_PROP(PcmDescriptionProperty, IsCompatibleWithTheNearest, ())
{
    isCompatibleWithTheNearest<Pcm>();
}
RC_GTEST_PROP(DsdDescriptionProperty, IsCompatibleWithTheNearest, ())
{
    isCompatibleWithTheNearest<Dsd>();
}
