#pragma once

// The resamplers' counters as a plain model, which goes through its steps one by one, channel by
// channel, and filters with the plain inner loops; and both side by side.

#include <algorithm>
#include <cassert>
#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "audioUtils/resample/HighQualityResampler.h"
#include "audioUtils/resample/HighQualityResamplerShort.h"
#include "support/Choices.h"
#include "support/Differences.h"

namespace resamplerModel {

using audioUtils::HighQualityResampler;
using audioUtils::HighQualityResamplerShort;
using Quality = HighQualityResampler::FilterQuality;

struct FloatClass
{
    using Resampler = HighQualityResampler;
    using Sample = float;
    static unsigned int inBufferSize(unsigned int xoff) { return (xoff + 256) * 2; }
    static bool mayPass(int nx) { return nx >= 1; }
    static double unity() { return 0.8912509F; }
    static float scaleFor(double gain, double factor) { return static_cast<float>(gain / factor); }
    static constexpr float widestRatio = 8;
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
    static constexpr float widestRatio = 7.99F; // 8 is one too many
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
            assert(creep <= m_xread);
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

/// A resampler and its model, which get the same calls.
template<typename Class>
class ResamplerAndModel
{
public:
    ResamplerAndModel(testSupport::Choices& choices, unsigned int numChannels, Quality quality)
        : m_choices(choices),
          m_channels(numChannels),
          m_resampler(static_cast<int>(numChannels), quality),
          m_model(numChannels, quality)
    {
    }

    /// Processes a block, at times after a reset or a change of the ratio.
    /// @return in what the two differ then
    [[nodiscard]] std::string call()
    {
        const std::uint64_t kind = m_choices.below(20);
        if (kind == 19) {
            m_resampler.reset();
            m_model.reset();
        } else if (kind >= 17) {
            changeRatio();
        }
        if constexpr (std::is_same_v<Class, ShortClass>) {
            process<short>(32'767, 0);
        } else {
            // Integers are truncated, so what is next to one may come out as its neighbour.
            switch (m_choices.below(3)) {
            case 0:
                process<float>(1000, 0.002);
                break;
            case 1:
                process<int>(1000, 1);
                break;
            default:
                process<short>(1000, 1);
                break;
            }
        }
        return m_differences.text();
    }

private:
    void changeRatio()
    {
        static constexpr float rates[] = {44100, 48000, 48004.8F, 96000, 12155, 88200};
        float in = m_choices.anyOf(rates);
        float out = m_choices.anyOf(rates);
        switch (m_choices.below(8)) {
        case 7: // without a ratio
            in = 0;
            break;
        case 6: // as far as it goes
            in = 1;
            out = Class::widestRatio;
            break;
        case 5:
            in = Class::widestRatio;
            out = 1;
            break;
        case 4: // by a little
            in = 48000;
            out = 48000 + static_cast<float>(m_choices.upTo(2000)) / 100 - 10;
            break;
        default:
            break;
        }
        m_resampler.setSamplingRate(in, out);
        m_model.setSamplingRate(in, out);
    }

    [[nodiscard]] std::size_t anyLength(std::uint64_t mostFrames)
    {
        return m_choices.upTo(m_choices.upTo(mostFrames)) * m_channels +
               m_choices.below(m_channels);
    }

    template<typename T>
    void process(double level, double tolerance)
    {
        std::vector<T> in(anyLength(700));
        for (T& sample : in) {
            const double value = std::uniform_real_distribution<double>(-1.2, 1.2)(m_content);
            sample = static_cast<T>(level * std::clamp(value, -1.0, 1.0));
        }
        std::vector<T> out(anyLength(1500));
        const bool hasInput = !m_choices.oneIn(10);
        const bool mute = m_choices.oneIn(10);
        const bool flush = m_choices.oneIn(5);
        auto outSamples = static_cast<unsigned int>(out.size());
        std::vector<T> expected;
        const int expectedConsumed =
            m_model.process(hasInput ? in.data() : nullptr, static_cast<int>(in.size()), expected,
                            outSamples, mute, flush);
        const int consumed =
            resamplerModel::call(m_resampler, in, hasInput, out, outSamples, mute, flush);
        m_differences.compare("samples consumed", consumed, expectedConsumed);
        m_differences.compare("samples written", std::size_t{outSamples}, expected.size());
        m_differences.compareNear("sample", out, expected, tolerance);
        m_differences.compare("latency", m_resampler.getCurrentLatencyNs(), m_model.latencyNs());
    }

    testSupport::Choices& m_choices;
    unsigned int m_channels;
    std::minstd_rand m_content;
    typename Class::Resampler m_resampler;
    Model<Class> m_model;
    testSupport::Differences m_differences;
};

constexpr Quality qualities[] = {HighQualityResampler::Low, HighQualityResampler::Medium,
                                 HighQualityResampler::High, HighQualityResampler::Best};

} // namespace resamplerModel
