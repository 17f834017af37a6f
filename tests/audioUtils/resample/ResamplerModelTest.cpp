// The resamplers against a plain model of their counters, under random calls: the model goes
// through its steps one by one, channel by channel, and filters with the plain inner loops.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include <gmock/gmock.h>

#include "audioUtils/resample/HighQualityResampler.h"
#include "audioUtils/resample/HighQualityResamplerShort.h"

using audioUtils::HighQualityResampler;
using audioUtils::HighQualityResamplerShort;

namespace {

using Quality = HighQualityResampler::FilterQuality;

struct FloatClass
{
    using Resampler = HighQualityResampler;
    using Sample = float;
    static unsigned int inBufferSize(unsigned int xoff) { return (xoff + 256) * 2; }
    static bool mayPass(int nx) { return nx >= 1; }
    static double unity() { return 0.8912509F; }
    static float scaleFor(double gain, double factor) { return static_cast<float>(gain / factor); }
    static constexpr bool resetClearsFlush = false;
};

struct ShortClass
{
    using Resampler = HighQualityResamplerShort;
    using Sample = short;
    static unsigned int inBufferSize(unsigned int xoff) { return xoff + 512; }
    static bool mayPass(int nx) { return nx != 0; }
    static double unity() { return 8192; }
    static unsigned short scaleFor(double gain, double factor)
    {
        return static_cast<unsigned short>(gain / factor);
    }
    static constexpr bool resetClearsFlush = true;
};

template<typename T, typename Sample>
T converted(Sample sample)
{
    if constexpr (std::is_same_v<T, Sample>) {
        return sample;
    } else {
        return static_cast<T>(
            static_cast<long>(std::clamp<double>(sample, -2147483648.0, 2147483647.0)));
    }
}

template<typename Class>
class Model
{
public:
    using Sample = typename Class::Sample;

    Model(unsigned int numChannels, Quality quality) : m_channels(numChannels), m_filter(1, quality)
    {
        const unsigned int nmult[] = {15, 21, 35, 65};
        m_xoff = static_cast<unsigned int>((nmult[quality] + 1) * 0.5 * 8.0 + 10.0);
        m_size = Class::inBufferSize(m_xoff);
        m_in.assign(m_channels, std::vector<Sample>(m_size));
        m_out.assign(m_channels, {});
        m_xread = m_xoff;
    }

    void setSamplingRate(float inRate, float outRate)
    {
        const double factor = inRate != 0 && outRate != 0 ? inRate / outRate : 1.0F;
        m_inRate = inRate;
        if (factor == m_factor) {
            return;
        }
        const double t = m_factor * static_cast<double>(m_totalOut) -
                         static_cast<double>(m_totalIn) + m_timeOffset;
        const auto whole = static_cast<unsigned int>(static_cast<int>(t));
        if (whole != m_size) {
            for (auto& row : m_in) {
                for (unsigned int i = 0; i < m_size - whole; ++i) {
                    row[i] = row[i + whole];
                }
            }
        }
        m_xread = m_xread < whole ? 0 : m_xread - whole;
        m_totalOut = m_totalIn = 0;
        m_factor = factor;
        m_timeOffset = t - whole;
    }

    void reset()
    {
        for (auto& row : m_out) {
            row.clear();
        }
        m_xread = m_xoff;
        for (auto& row : m_in) {
            std::fill(row.begin(), row.end(), Sample{0});
        }
        m_timeOffset = 0;
        m_totalOut = m_totalIn = 0;
        if (Class::resetClearsFlush) {
            m_flushed = 0;
        }
        setSamplingRate(1, 1);
    }

    template<typename T>
    int process(const T* in, int inSamples, std::vector<T>& out, unsigned int outSamples, bool mute,
                bool flush)
    {
        const auto inFrames = static_cast<unsigned int>(inSamples) / m_channels;
        unsigned int room = outSamples / m_channels;
        unsigned int consumed = 0;
        out.clear();
        if (flush) {
            const unsigned int count = std::min(m_xoff - m_flushed, m_size - m_xread);
            for (unsigned int i = 0; i < count; ++i) {
                for (auto& row : m_in) {
                    row[m_xread] = 0;
                }
                ++m_xread;
            }
            m_flushed += count;
        } else {
            m_flushed = 0;
        }
        if (room == 0) {
            return 0;
        }
        handOut(out, room);
        for (;;) {
            for (; in != nullptr && consumed < inFrames && m_xread < m_size; ++consumed) {
                for (unsigned int c = 0; c < m_channels; ++c) {
                    m_in[c][m_xread] =
                        mute ? Sample{0} : static_cast<Sample>(in[consumed * m_channels + c]);
                }
                ++m_xread;
            }
            if (pending() > 0) {
                break;
            }
            const int nx = static_cast<int>(m_xread) - 2 * static_cast<int>(m_xoff);
            if (!Class::mayPass(nx)) {
                break;
            }
            pass(nx, mute);
            m_totalOut += pending();
            const auto newIn =
                static_cast<std::uint64_t>(static_cast<double>(m_totalOut) * m_factor);
            const auto creep =
                static_cast<unsigned int>(std::max<long>(0, static_cast<long>(newIn - m_totalIn)));
            EXPECT_LE(creep, m_xread);
            for (auto& row : m_in) {
                for (unsigned int i = 0; i + creep < m_xread; ++i) {
                    row[i] = row[i + creep];
                }
            }
            m_xread -= creep;
            m_totalIn = newIn;
            if (room == 0 || pending() == 0) {
                break;
            }
            handOut(out, room);
        }
        return static_cast<int>(consumed * m_channels);
    }

    [[nodiscard]] long latencyNs() const
    {
        if (m_inRate == 0) {
            return 0;
        }
        const unsigned int ahead = m_xread - m_xoff;
        const auto frames =
            static_cast<int>(static_cast<long>(static_cast<double>(pending()) * m_factor + ahead));
        return static_cast<long>(
            static_cast<double>(static_cast<std::uint64_t>(frames * 1'000'000'000L)) / m_inRate);
    }

private:
    [[nodiscard]] std::size_t pending() const { return m_out[0].size(); }

    template<typename T>
    void handOut(std::vector<T>& out, unsigned int& room)
    {
        const std::size_t count = std::min<std::size_t>(pending(), room);
        for (std::size_t i = 0; i < count; ++i) {
            for (auto& row : m_out) {
                out.push_back(converted<T>(row[i]));
            }
        }
        for (auto& row : m_out) {
            row.erase(row.begin(), row.begin() + static_cast<std::ptrdiff_t>(count));
        }
        room -= static_cast<unsigned int>(count);
    }

    void pass(int nx, bool mute)
    {
        const double start =
            m_xoff + (static_cast<double>(m_totalOut) * m_factor - static_cast<double>(m_totalIn)) +
            m_timeOffset;
        const auto scale = Class::scaleFor(Class::unity(), std::max(1.0, m_factor));
        for (unsigned int c = 0; c < m_channels; ++c) {
            std::vector<Sample> y(m_size * 8 + 2);
            Sample* const x = m_in[c].data();
            const int count =
                mute              ? m_filter.srcSilence(x, y.data(), m_factor, scale, start, nx)
                : m_factor == 1.0 ? m_filter.srcCopy(x, y.data(), m_factor, scale, start, nx)
                : m_factor < 1.0
                    ? m_filter.srcUpsample(x, y.data(), m_factor, scale, start, nx, true)
                    : m_filter.srcUpOrDownsample(x, y.data(), m_factor, scale, start, nx, true);
            y.resize(static_cast<std::size_t>(count));
            m_out[c] = y;
        }
    }

    unsigned int m_channels;
    typename Class::Resampler m_filter;
    unsigned int m_xoff;
    unsigned int m_size;
    std::vector<std::vector<Sample>> m_in;
    std::vector<std::vector<Sample>> m_out;
    unsigned int m_xread;
    double m_factor = 1;
    double m_inRate = 1;
    double m_timeOffset = 0;
    std::uint64_t m_totalOut = 0;
    std::uint64_t m_totalIn = 0;
    unsigned int m_flushed = 0;
};

template<typename T>
int call(HighQualityResampler& resampler, std::vector<T>& in, bool hasInput, std::vector<T>& out,
         unsigned int& outSamples, bool mute, bool flush)
{
    T* const from = hasInput ? in.data() : nullptr;
    const auto count = static_cast<int>(in.size());
    if constexpr (std::is_same_v<T, short>) {
        return resampler.processShort(reinterpret_cast<unsigned short*>(from), count,
                                      reinterpret_cast<unsigned short*>(out.data()), outSamples,
                                      mute, flush);
    } else if constexpr (std::is_same_v<T, int>) {
        return resampler.processInt(reinterpret_cast<unsigned int*>(from), count,
                                    reinterpret_cast<unsigned int*>(out.data()), outSamples, mute,
                                    flush);
    } else {
        return resampler.processFloat(from, count, out.data(), outSamples, mute, flush);
    }
}

/// One random call of both.
template<typename T, typename Class>
void compare(std::mt19937& random, unsigned int channels, typename Class::Resampler& resampler,
             Model<Class>& model, double level, double tolerance)
{
    const auto upTo = [&random](unsigned int most) {
        return std::uniform_int_distribution<unsigned int>(0, most)(random);
    };
    std::vector<T> in(upTo(upTo(700)) * channels + upTo(channels - 1));
    for (T& sample : in) {
        sample = static_cast<T>(level * (2.0 * upTo(1'000'000) / 1e6 - 1));
    }
    std::vector<T> out(upTo(upTo(1500)) * channels + upTo(channels - 1));
    const bool hasInput = upTo(9) != 0;
    const bool mute = upTo(9) == 0;
    const bool flush = upTo(4) == 0;
    auto outSamples = static_cast<unsigned int>(out.size());
    std::vector<T> expected;
    const int modelConsumed =
        model.process(hasInput ? in.data() : nullptr, static_cast<int>(in.size()), expected,
                      outSamples, mute, flush);
    const int consumed = call(resampler, in, hasInput, out, outSamples, mute, flush);
    ASSERT_EQ(consumed, modelConsumed);
    ASSERT_EQ(outSamples, expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        ASSERT_NEAR(static_cast<double>(out[i]), static_cast<double>(expected[i]), tolerance) << i;
    }
    ASSERT_EQ(resampler.getCurrentLatencyNs(), model.latencyNs());
}

template<typename Class>
void changeRatio(std::mt19937& random, typename Class::Resampler& resampler, Model<Class>& model)
{
    static constexpr float rates[][2] = {{44100, 48000},    {48000, 44100}, {96000, 48000},
                                         {1, 7.9F},         {7.9F, 1},      {48000, 48004.8F},
                                         {48004.8F, 48000}, {48000, 48000}, {0, 48000}};
    const auto& [in, out] = rates[random() % std::size(rates)];
    resampler.setSamplingRate(in, out);
    model.setSamplingRate(in, out);
}

constexpr Quality qualities[] = {HighQualityResampler::Low, HighQualityResampler::Medium,
                                 HighQualityResampler::High, HighQualityResampler::Best};

/// Random calls of a resampler and its model, for some seeds.
/// @param compareOne makes one call of both to process audio
template<typename Class, typename CompareOne>
void follow(CompareOne compareOne)
{
    for (unsigned int seed = 0; seed < 24; ++seed) {
        std::mt19937 random(seed);
        const unsigned int channels = 1 + seed % 3;
        typename Class::Resampler resampler(static_cast<int>(channels), qualities[seed % 4]);
        Model<Class> model(channels, qualities[seed % 4]);
        for (int i = 0; i < 150 && !testing::Test::HasFailure(); ++i) {
            SCOPED_TRACE("seed " + std::to_string(seed) + ", call " + std::to_string(i));
            const auto dice = random() % 20;
            if (dice == 0) {
                resampler.reset();
                model.reset();
            } else if (dice <= 2) {
                changeRatio<Class>(random, resampler, model);
            }
            compareOne(random, channels, resampler, model);
        }
    }
}

} // namespace

TEST(ResamplerModel, FloatResamplerFollowsIt)
{
    // Integers are truncated, so what is next to one may come out as its neighbour.
    follow<FloatClass>(
        [](std::mt19937& random, unsigned int channels, auto& resampler, auto& model) {
            switch (random() % 3) {
            case 0:
                compare<float, FloatClass>(random, channels, resampler, model, 1000, 0.002);
                break;
            case 1:
                compare<int, FloatClass>(random, channels, resampler, model, 1000, 1);
                break;
            default:
                compare<short, FloatClass>(random, channels, resampler, model, 1000, 1);
                break;
            }
        });
}

TEST(ResamplerModel, ShortResamplerFollowsItBitForBit)
{
    follow<ShortClass>(
        [](std::mt19937& random, unsigned int channels, auto& resampler, auto& model) {
            compare<short, ShortClass>(random, channels, resampler, model, 32'767, 0);
        });
}
