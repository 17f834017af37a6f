#include "audioUtils/clickRemover/ClickRemover.h"

#include <algorithm>
#include <limits>
#include <numeric>
#include <vector>

#include <gmock/gmock.h>

#include "audioUtils/clickRemover/ClickRemoverAndModel.h"
#include "support/AllocationCounter.h"
#include "support/LogCapture.h"

using audioUtils::ClickRemover;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testSupport::AllocationCounter;
using testSupport::LogCapture;

namespace {

constexpr int rate = 48000;
constexpr std::size_t delay = 960; // of gap 10, margin 5

template<typename T>
struct ClickRemoverOfTest : testing::Test
{
};

using SampleTypes = testing::Types<short, int, float>;
TYPED_TEST_SUITE(ClickRemoverOfTest, SampleTypes);

/// Everything that a stream becomes, in blocks of one size; without the delay's silence.
template<typename T>
std::vector<T> through(ClickRemover<T>& remover, std::vector<T> stream, std::size_t blockFrames,
                       std::size_t channels = 1)
{
    for (std::size_t at = 0; at < stream.size(); at += blockFrames * channels) {
        const std::size_t samples = std::min(blockFrames * channels, stream.size() - at);
        remover.process(stream.data() + at, rate, channels, samples / channels);
    }
    std::vector<T> rest(100'000);
    std::size_t frames = rest.size() / channels;
    EXPECT_EQ(remover.flush(rest.data(), rate, channels, frames), 0U);
    stream.insert(stream.end(), rest.begin(),
                  rest.begin() + static_cast<std::ptrdiff_t>(frames * channels));
    const std::size_t skipped = frames * channels;
    return {stream.begin() + static_cast<std::ptrdiff_t>(skipped), stream.end()};
}

/// The fades that the log tells of.
std::vector<std::string> required(const LogCapture& log)
{
    std::vector<std::string> messages = log.messages();
    std::erase_if(messages, [](const std::string& m) { return m.find("required") == m.npos; });
    return messages;
}

/// What is logged of a frame of the stream, which enters the line behind the delay's silence.
std::string at(const std::string& fade, std::size_t frame)
{
    return fade + " required at " + std::to_string(delay + frame);
}

/// Signal of 1000 in [begin, end), one channel.
std::vector<short> burst(std::size_t length, std::size_t begin, std::size_t end)
{
    std::vector<short> stream(length);
    std::fill(stream.begin() + static_cast<std::ptrdiff_t>(begin),
              stream.begin() + static_cast<std::ptrdiff_t>(end), short{1000});
    return stream;
}

} // namespace

TEST(ClickRemoverTest, DelaysByGapMarginAndReserve)
{
    const ClickRemover<short> remover(10, 5, 10, false);
    EXPECT_EQ(remover.minimumDelay(48000), 960U);
    EXPECT_EQ(remover.minimumDelay(44100), 882U);
}

TEST(ClickRemoverTest, ConvertsSamples)
{
    EXPECT_EQ(ClickRemover<short>::toDouble(32767), 1.0);
    EXPECT_EQ(ClickRemover<short>::fromDouble(0.5), 16383);
    EXPECT_EQ(ClickRemover<short>::fromDouble(-0.5), -16383);
    EXPECT_EQ(ClickRemover<int>::toDouble(2147483647), 1.0);
    EXPECT_EQ(ClickRemover<int>::fromDouble(2.0), std::numeric_limits<int>::max());
    EXPECT_EQ(ClickRemover<int>::fromDouble(-2.0), std::numeric_limits<int>::min());
    EXPECT_EQ(ClickRemover<int>::fromDouble(0.5), 1073741823);
    EXPECT_EQ(ClickRemover<float>::toDouble(std::numeric_limits<float>::max()), 1.0);
    for (const float sample : {0.5F, -0.123F, 1e-30F}) {
        EXPECT_EQ(ClickRemover<float>::fromDouble(ClickRemover<float>::toDouble(sample)), sample);
    }
}

TYPED_TEST(ClickRemoverOfTest, LeavesSilenceAloneAndSaysNothing)
{
    ClickRemover<TypeParam> remover(10, 5, 10, false);
    LogCapture log("ClickRemover", log4cplus::DEBUG_LOG_LEVEL);
    std::vector<TypeParam> block(960);
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(remover.process(block.data(), rate, 2, 480), delay);
        EXPECT_THAT(block, Each(TypeParam{0}));
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TYPED_TEST(ClickRemoverOfTest, PassesTheSteadyStateUnchangedButLater)
{
    ClickRemover<TypeParam> remover(10, 5, 10, false);
    std::vector<TypeParam> stream(48000);
    std::iota(stream.begin(), stream.end(), TypeParam{1});
    const std::vector<TypeParam> before = stream;
    for (std::size_t at = 0; at < stream.size(); at += 480) {
        remover.process(stream.data() + at, rate, 1, 480);
    }
    constexpr std::size_t faded = 5 * 48 + 480;
    EXPECT_TRUE(std::equal(stream.begin() + delay + faded, stream.end(), before.begin() + faded));
}

TEST(ClickRemoverTest, FadesInAfterTheMargin)
{
    ClickRemover<short> remover(10, 5, 10, false);
    const std::vector<short> out = through(remover, burst(9600, 2000, 9000), 480);
    // Nothing until 5 ms behind the start, then the rising half of a raised cosine.
    EXPECT_THAT(std::vector<short>(out.begin(), out.begin() + 2000 + 240), Each(short{0}));
    EXPECT_EQ(out[2240], 0) << "the first weight is exactly 0";
    EXPECT_NEAR(out[2240 + 240], 500, 1);
    EXPECT_TRUE(std::is_sorted(out.begin() + 2240, out.begin() + 2720));
    EXPECT_EQ(out[2720], 1000);
}

TEST(ClickRemoverTest, FadesOutBeforeTheEnd)
{
    ClickRemover<short> remover(10, 5, 10, false);
    const std::vector<short> out = through(remover, burst(20000, 2000, 9000), 480);
    constexpr std::size_t end = 9000 - 240; // exclusive: the last frame of signal, less the margin
    EXPECT_EQ(out[end - 1], 0);
    EXPECT_EQ(out[end - 481], 1000);
    EXPECT_TRUE(std::is_sorted(out.rend() - end, out.rend() - end + 480));
    EXPECT_EQ(out[end - 241], 500 - 1);
}

TEST(ClickRemoverTest, PlaysOverAShortSilence)
{
    ClickRemover<short> remover(10, 5, 10, false);
    LogCapture log("ClickRemover", log4cplus::DEBUG_LOG_LEVEL);
    std::vector<short> stream = burst(20000, 2000, 6000);
    std::fill(stream.begin() + 6479, stream.begin() + 12000, short{1000}); // 10 ms later
    const std::vector<short> out = through(remover, stream, 480);
    EXPECT_TRUE(std::equal(out.begin() + 2720, out.begin() + 11000, stream.begin() + 2720));
    EXPECT_THAT(required(log), ElementsAre(at("Fade in", 2000), at("Fade out", 11999)));
}

// The gap is from the last frame of signal to the next one, so that it holds one frame of silence
// less than it is long.
TEST(ClickRemoverTest, EndsASignalWhenTheNextOneIsMoreThanTheGapAway)
{
    ClickRemover<short> remover(10, 5, 10, false);
    LogCapture log("ClickRemover", log4cplus::DEBUG_LOG_LEVEL);
    std::vector<short> stream = burst(20000, 2000, 6000);
    std::fill(stream.begin() + 6480, stream.begin() + 12000, short{1000}); // 10 ms of silence
    const std::vector<short> out = through(remover, stream, 480);
    EXPECT_THAT(required(log),
                ElementsAre(at("Fade in", 2000), at("Fade in", 6480), at("Fade out", 11999)));
    EXPECT_EQ(out[6480 + 240], 0) << "faded in anew, behind the margin";
}

TEST(ClickRemoverTest, FadesAShortSignalByItsHalves)
{
    std::vector<short> stream = burst(9600, 2000, 2400);
    ClickRemover<short> faded(10, 2, 10, false);
    const std::vector<short> out = through(faded, stream, 480);
    const auto start = out.begin() + 2000 + 96; // less the margin
    EXPECT_EQ(*start, 0);
    EXPECT_LT(*std::max_element(start, out.end()), 1000);
    EXPECT_GT(*std::max_element(start, out.end()), 0);
    ClickRemover<short> skipped(10, 2, 10, true);
    LogCapture log("ClickRemover");
    EXPECT_EQ(through(skipped, stream, 480), stream);
    EXPECT_THAT(log.lines(), Contains(HasSubstr("TRACE Too short signal detected (39")));
}

// Each level in its words.
TEST(ClickRemoverTest, TellsWhatItFinds)
{
    ClickRemover<short> remover(10, 5, 10, false);
    LogCapture log("ClickRemover");
    std::vector<short> block(480);
    remover.onWrite(0, block.data(), rate, 1, 480);
    EXPECT_THAT(
        log.takeLines(),
        ElementsAre("TRACE onWrite(), pos = 0, signalStart = Invalid, signalEnd = Invalid"));
    block[100] = block[101] = 7;
    remover.onWrite(480, block.data(), rate, 1, 480);
    EXPECT_THAT(log.takeLines(),
                ElementsAre("TRACE onWrite(), pos = 480, signalStart = 580, signalEnd = 581",
                            "DEBUG Fade in required at 580"));
    std::fill(block.begin(), block.end(), short{0});
    remover.onWrite(960, block.data(), rate, 1, 480);
    EXPECT_THAT(log.takeLines(),
                ElementsAre("TRACE onWrite(), pos = 960, signalStart = 581, signalEnd = Invalid",
                            "DEBUG Fade out required at 581"));
    remover.onWrite(1440, block.data(), rate, 1, 480);
    EXPECT_THAT(log.takeLines(), Not(Contains(HasSubstr("required"))));

    ClickRemover<short> other(10, 5, 10, false);
    std::fill(block.begin(), block.end(), short{7});
    other.onWrite(0, block.data(), rate, 1, 480);
    log.clear();
    other.onRead(0, block.data(), rate, 1, 480);
    EXPECT_THAT(log.takeLines(), ElementsAre("TRACE Signal detected (4294967295 frames)",
                                             "DEBUG read at 0, fade in: 240 -> 720 (240 -> 480)"));
    other.notifyUnderrun(10'000, rate);
    std::fill(block.begin(), block.end(), short{0});
    other.onWrite(5000, block.data(), rate, 1, 480);
    log.clear();
    other.onRead(0, block.data(), rate, 1, 480);
    EXPECT_THAT(log.takeLines(), Contains(HasSubstr("fade out: ")));
}

TEST(ClickRemoverTest, LeavesTheLastFramesOutOfTheSearchForTheEnd)
{
    LogCapture log("ClickRemover", log4cplus::TRACE_LOG_LEVEL);
    std::vector<short> block(960, 5);
    ClickRemover<short> stereo(10, 5, 10, false);
    stereo.onWrite(0, block.data(), rate, 2, 480);
    EXPECT_THAT(log.takeLines()[0], HasSubstr("signalStart = 0, signalEnd = 478"));
    ClickRemover<short> mono(10, 5, 10, false);
    mono.onWrite(0, block.data(), rate, 1, 480);
    EXPECT_THAT(log.takeLines()[0], HasSubstr("signalStart = 0, signalEnd = 479"));
    ClickRemover<short> few(10, 5, 10, false);
    few.onWrite(0, block.data(), rate, 8, 8); // as many frames as channels: no search
    EXPECT_THAT(log.takeLines()[0], HasSubstr("signalStart = 0, signalEnd = Invalid"));
}

TEST(ClickRemoverTest, ReadsNothingOutsideABlockOfFewerFramesThanChannels)
{
    for (std::size_t frames = 1; frames <= 8; ++frames) {
        const auto block = std::make_unique<short[]>(frames * 8); // whose ends are watched
        std::fill_n(block.get(), frames * 8, short{3});
        ClickRemover<short> remover(10, 5, 10, false);
        EXPECT_EQ(remover.process(block.get(), rate, 8, frames), delay);
    }
}

TEST(ClickRemoverTest, FlushFadesTheEndOut)
{
    ClickRemover<short> remover(10, 5, 10, false);
    std::vector<short> block(4800, 1000);
    remover.process(block.data(), rate, 1, 4800);
    std::vector<short> rest(960);
    std::size_t frames = 500;
    EXPECT_EQ(remover.flush(rest.data(), rate, 1, frames), 460U);
    EXPECT_EQ(frames, 500U);
    frames = 5000;
    EXPECT_EQ(remover.flush(rest.data() + 500, rate, 1, frames), 0U);
    EXPECT_EQ(frames, 460U);
    EXPECT_EQ(rest[0], 1000);
    EXPECT_TRUE(std::is_sorted(rest.rbegin() + 240, rest.rbegin() + 720));
    EXPECT_EQ(rest[960 - 240 - 1], 0);
    EXPECT_EQ(rest[960 - 240 - 481], 1000);
}

TEST(ClickRemoverTest, DoesNothingWithoutFrames)
{
    ClickRemover<short> remover(10, 5, 10, false);
    EXPECT_EQ(remover.process(nullptr, rate, 2, 0), 0U);
    std::size_t frames = 100;
    short none = 0;
    EXPECT_EQ(remover.flush(&none, rate, 2, frames), 0U);
    EXPECT_EQ(frames, 0U);
}

TEST(ClickRemoverTest, ForgetsAtAReset)
{
    ClickRemover<short> remover(10, 5, 10, false);
    ClickRemover<short> fresh(10, 5, 10, false);
    std::vector<short> block(480, 99);
    remover.process(block.data(), rate, 1, 480);
    remover.reset();
    for (int i = 0; i < 20; ++i) {
        std::vector<short> a(480, static_cast<short>(i / 3 * 100));
        std::vector<short> b = a;
        remover.process(a.data(), rate, 1, 480);
        fresh.process(b.data(), rate, 1, 480);
        ASSERT_EQ(a, b) << i;
    }
}

// After a rest that is too short for the delay the line begins with silence again.
TEST(ClickRemoverTest, StartsAnewOnARest)
{
    ClickRemover<short> remover(10, 5, 10, false);
    std::vector<short> block(4800, 1000);
    remover.process(block.data(), rate, 1, 4800);
    std::size_t frames = 100;
    EXPECT_EQ(remover.flush(block.data(), rate, 1, frames), 860U);
    EXPECT_EQ(remover.process(block.data(), rate, 1, 480), delay);
    EXPECT_THAT(std::vector<short>(block.begin(), block.begin() + 480), Each(short{0}));
}

TYPED_TEST(ClickRemoverOfTest, AllocatesNothingOnceItsLineIsFull)
{
    const LogCapture silent("ClickRemover", log4cplus::OFF_LOG_LEVEL);
    ClickRemover<TypeParam> remover(10, 5, 10, false);
    std::vector<TypeParam> block(960, TypeParam{1});
    for (int i = 0; i < 10; ++i) {
        remover.process(block.data(), rate, 2, 480);
    }
    const AllocationCounter allocations;
    for (int i = 0; i < 100; ++i) {
        std::fill(block.begin(), block.end(), TypeParam(i % 7 < 3 ? 5 : 0));
        remover.process(block.data(), rate, 2, i % 11 == 0 ? 480 : 77);
    }
    EXPECT_EQ(allocations.count(), 0U);
}

// A short signal fades by its halves, however short the fades are otherwise.
TYPED_TEST(ClickRemoverOfTest, AllocatesNothingForTheLongFadesOfAShortSignal)
{
    const LogCapture silent("ClickRemover", log4cplus::OFF_LOG_LEVEL);
    ClickRemover<TypeParam> remover(10, 5, 2, false);
    std::vector<TypeParam> block(960);
    remover.process(block.data(), rate, 2, 480);
    const AllocationCounter allocations;
    for (int i = 0; i < 6; ++i) {
        std::fill(block.begin(), block.end(), TypeParam(i == 0 ? 5 : 0));
        remover.process(block.data(), rate, 2, 480);
    }
    EXPECT_EQ(allocations.count(), 0U);
}

// Random streams in random blocks: every sample, and every return value.
TYPED_TEST(ClickRemoverOfTest, DoesWhatThePlainOneDoes)
{
    for (unsigned int seed = 0; seed < 600; ++seed) {
        testSupport::RandomChoices choices(seed);
        clickRemoverModel::ClickRemoverAndModel<TypeParam> both(choices);
        for (int i = 0; i < 60; ++i) {
            ASSERT_EQ(both.call(), "") << "seed " << seed << ", call " << i;
        }
    }
}

// Positions beyond 2^31 wrap, as 32-bit numbers do, and nothing worse.
TEST(ClickRemoverTest, WrapsItsPositions)
{
    for (const std::uint64_t pos : {0x7FFFFF00ULL, 0x17FFFFF80ULL}) {
        ClickRemover<short> remover(10, 5, 10, false);
        std::vector<short> block(480, 1000);
        remover.onWrite(pos, block.data(), rate, 1, 480);
        remover.onRead(pos, block.data(), rate, 1, 480);
        EXPECT_EQ(block[239], 0);
        EXPECT_NEAR(block[479], 500, 5);
    }
}

// What is logged of a fade is what it was reckoned with: 32 bits.
TEST(ClickRemoverTest, TellsOfFadesBeyond2To31As32Bits)
{
    const auto fades = [](std::uint64_t pos) {
        ClickRemover<short> remover(10, 5, 10, false);
        std::vector<short> block(480, 1000);
        remover.onWrite(pos, block.data(), rate, 1, 480);
        remover.notifyUnderrun(pos + 480, rate);
        LogCapture log("ClickRemover", log4cplus::DEBUG_LOG_LEVEL);
        remover.onRead(pos, block.data(), rate, 1, 480);
        return log.messages();
    };
    EXPECT_THAT(
        fades(0x7FFF'FFFF),
        ElementsAre("read at 2147483647, fade out: -2147483648 -> -2147483409 (1 -> 240)",
                    "read at 2147483647, fade in: -2147483409 -> -2147483170 (240 -> 479)"));
    EXPECT_THAT(
        fades(0x8000'0000),
        ElementsAre("read at -2147483648, fade out: -2147483647 -> -2147483408 (1 -> 240)",
                    "read at -2147483648, fade in: -2147483408 -> -2147483169 (240 -> 479)"));
    EXPECT_THAT(fades(0x1'0000'0100), ElementsAre("read at 256, fade out: 257 -> 496 (1 -> 240)",
                                                  "read at 256, fade in: 496 -> 735 (240 -> 479)"));
}

// Only a position can be missing; a length of all ones is one.
TEST(ClickRemoverTest, TellsALengthOfAllOnesAsANumber)
{
    ClickRemover<short> remover(10, 5, 10, false);
    std::vector<short> block(480, 7);
    remover.onWrite(0, block.data(), rate, 1, 480); // starts at 0, and has no end yet
    LogCapture log("ClickRemover");
    remover.onRead(0, block.data(), rate, 1, 480);
    EXPECT_THAT(log.lines(), Contains("TRACE Signal detected (4294967295 frames)"));
}

// Wherever the blocks cut the fades.
TEST(ClickRemoverTest, DoesNotDependOnTheBlocks)
{
    const std::vector<short> stream = burst(20000, 3000, 12000);
    ClickRemover<short> whole(10, 5, 5, false);
    const std::vector<short> expected = through(whole, stream, 480);
    for (const std::size_t frames : {16U, 100U, 239U, 479U, 481U}) {
        ClickRemover<short> remover(10, 5, 5, false);
        const std::vector<short> out = through(remover, stream, frames);
        EXPECT_TRUE(std::equal(out.begin(), out.begin() + 19000, expected.begin())) << frames;
    }
}
