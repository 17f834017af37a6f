#pragma once

#include <algorithm>
#include <array>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <mutex>
#include <type_traits>
#include <vector>

namespace audioUtils::detail {

/// How a filter's length sets the sizes of a resampler.
struct ResamplerSizes
{
    unsigned int nmult = 0; ///< filter length in zero crossings
    unsigned int xoff =
        0; ///< history that the filter needs to either side, for the widest ratio, 8
    unsigned int inBufferSize = 0;
    unsigned int outBufferSize = 0;
};

/// Indexed by the quality: Low, Medium, High, Best.
constexpr unsigned int filterLengths[] = {15, 21, 35, 65};

/// The reserve for the filter's half length at a ratio of 8.
constexpr unsigned int reachOf(unsigned int nmult)
{
    const double half = (nmult + 1) * 0.5;
    return std::max(static_cast<unsigned int>(half + 10),
                    static_cast<unsigned int>(half * 8.0 + 10.0));
}

constexpr ResamplerSizes sizesFor(unsigned int nmult, unsigned int inBufferSize)
{
    return {nmult, reachOf(nmult), inBufferSize,
            static_cast<unsigned int>(inBufferSize * 8.0 + 2.0)};
}

/// The one filter of each quality, for all resamplers of a kind in the process: designed when it is
/// first asked for. Safe to call from any thread.
///
/// @param entriesPerSample of the filter's table
template<typename Filter>
[[nodiscard]] Filter& sharedFilter(int quality, int entriesPerSample)
{
    static std::mutex mutex;
    static std::array<std::unique_ptr<Filter>, std::size(filterLengths)> filters;
    const auto index = static_cast<std::size_t>(quality);
    const std::lock_guard lock(mutex);
    if (!filters[index]) {
        const int zeroCrossings = static_cast<int>(filterLengths[index] - 1) / 2;
        filters[index] = std::make_unique<Filter>(zeroCrossings * entriesPerSample);
    }
    return *filters[index];
}

/// What the float and the 16-bit resampler share: buffering, phase, flush, mute, ratio change and
/// latency. The history is kept channel by channel; positions in it are counted in frames.
///
/// A pass filters all that the history allows into the output buffers; what the caller had no room
/// for waits there. The read position is never stored: it follows from the counts of frames since
/// the last change of the ratio, so rounding does not add up.
///
/// @tparam Sample  of the history
/// @tparam Pending counts staged frames
template<typename Sample, typename Pending>
class ResamplerCore
{
public:
    ResamplerCore(int numChannels, const ResamplerSizes& sizes)
        : m_numChannels(numChannels),
          m_sizes(sizes),
          m_inBuffers(count(numChannels), std::vector<Sample>(sizes.inBufferSize)),
          m_outBuffers(count(numChannels), std::vector<Sample>(sizes.outBufferSize)),
          m_xread(sizes.xoff)
    {
        for (std::vector<Sample>& buffer : m_inBuffers) {
            m_inRows.push_back(buffer.data());
        }
        for (std::vector<Sample>& buffer : m_outBuffers) {
            m_outRows.push_back(buffer.data());
        }
    }

    /// Forgets the signal; the ratio stays.
    void clear()
    {
        m_pending = 0;
        m_xread = m_sizes.xoff;
        for (std::vector<Sample>& buffer : m_inBuffers) {
            std::fill(buffer.begin(), buffer.end(), Sample{});
        }
        m_timeOffset = 0;
        m_totalOut = 0;
        m_totalIn = 0;
    }

    void clearFlush() { m_flushed = 0; }

    /// Takes new rates; the read position and its fractional phase are carried over.
    void setRates(double inRate, double outRate, double factor)
    {
        m_inRate = inRate;
        m_outRate = outRate;
        if (factor == m_factor) {
            return;
        }
        const double position = m_factor * static_cast<double>(m_totalOut) -
                                static_cast<double>(m_totalIn) + m_timeOffset;
        const int whole = static_cast<int>(position);
        dropInput(static_cast<unsigned int>(whole), m_sizes.inBufferSize);
        m_xread -= std::min(m_xread, static_cast<unsigned int>(whole));
        m_totalOut = 0;
        m_totalIn = 0;
        m_factor = factor;
        m_timeOffset = position - whole;
    }

    [[nodiscard]] double factor() const { return m_factor; }
    [[nodiscard]] unsigned int inBufferSize() const { return m_sizes.inBufferSize; }
    [[nodiscard]] std::size_t numChannels() const { return m_inBuffers.size(); }
    [[nodiscard]] Sample* const* inRows() { return m_inRows.data(); }
    [[nodiscard]] Sample* const* outRows() { return m_outRows.data(); }

    /// The caller's interleaved input through the history and the filter to his interleaved output.
    ///
    /// @tparam Codec   converts: toHistory(T), fromOutput(Sample)
    /// @param mayPass  whether so many frames are enough for a pass (int)
    /// @param filter   fills the output buffers from a start time and so many input frames on, and
    ///                 returns how many frames it wrote (double, int)
    /// @return input samples taken; `outSamples` becomes the samples written
    template<typename Codec, typename T, typename MayPass, typename Filter>
    int process(const T* in, int inSamples, T* out, unsigned int& outSamples, bool mute, bool flush,
                MayPass mayPass, Filter filter)
    {
        const auto channels = static_cast<unsigned int>(m_numChannels);
        unsigned int inFrames =
            channels == 0 || inSamples < 0 ? 0 : static_cast<unsigned int>(inSamples) / channels;
        unsigned int outRoom = channels == 0 ? 0 : outSamples / channels;
        unsigned int consumed = 0;
        unsigned int written = 0;
        appendFlush(flush);

        const auto handOut = [&] {
            const unsigned int frames = std::min<unsigned int>(m_pending, outRoom);
            interleave<Codec>(out, frames);
            out += std::size_t{frames} * channels;
            outRoom -= frames;
            written += frames;
        };
        if (outRoom > 0) {
            handOut();
            for (;;) {
                const unsigned int taken = takeInput<Codec>(in, inFrames, mute);
                consumed += taken;
                inFrames -= taken;
                in += in == nullptr ? 0 : std::size_t{taken} * channels;
                if (m_pending > 0) {
                    break;
                }
                const int available =
                    static_cast<int>(m_xread) - 2 * static_cast<int>(m_sizes.xoff);
                if (!mayPass(available)) {
                    break;
                }
                const double startTime =
                    m_sizes.xoff +
                    (static_cast<double>(m_totalOut) * m_factor - static_cast<double>(m_totalIn)) +
                    m_timeOffset;
                m_pending = static_cast<Pending>(filter(startTime, available));
                moveOn();
                if (outRoom == 0 || m_pending == 0) {
                    break;
                }
                handOut();
            }
        }
        outSamples = written * channels;
        return static_cast<int>(consumed * channels);
    }

    /// Input that is buffered beyond the filter's reach, and staged output, in time.
    [[nodiscard]] long latencyNs() const
    {
        if (m_inRate == 0.0) {
            return 0;
        }
        const unsigned int ahead = m_xread - m_sizes.xoff; // wraps
        const int frames =
            static_cast<int>(static_cast<std::int64_t>(m_pending * m_factor + ahead));
        const auto nanoseconds = static_cast<std::uint64_t>(std::int64_t{frames} * 1'000'000'000);
        return static_cast<long>(static_cast<double>(nanoseconds) / m_inRate);
    }

private:
    static std::size_t count(int numChannels)
    {
        return static_cast<std::size_t>(std::max(numChannels, 0));
    }

    // Enough silence to push the last input through the filter's centre, however many calls it
    // takes.
    void appendFlush(bool flush)
    {
        if (!flush) {
            m_flushed = 0;
            return;
        }
        const unsigned int frames =
            std::min(m_sizes.xoff - m_flushed, m_sizes.inBufferSize - m_xread);
        appendSilence(frames);
        m_flushed += frames;
    }

    void appendSilence(unsigned int frames)
    {
        for (Sample* const row : m_inRows) {
            std::fill_n(row + m_xread, frames, Sample{});
        }
        m_xread += frames;
    }

    template<typename Codec, typename T>
    unsigned int takeInput(const T* in, unsigned int frames, bool mute)
    {
        if (in == nullptr) {
            return 0;
        }
        const unsigned int taken = std::min(frames, m_sizes.inBufferSize - m_xread);
        if (mute) {
            appendSilence(taken);
            return taken;
        }
        forEachChannel([&](std::size_t channel, auto channels) {
            Sample* const row = m_inRows[channel] + m_xread;
            for (std::size_t i = 0; i < taken; ++i) {
                row[i] = Codec::toHistory(in[i * channels + channel]);
            }
        });
        m_xread += taken;
        return taken;
    }

    template<typename Codec, typename T>
    void interleave(T* out, unsigned int frames)
    {
        forEachChannel([&](std::size_t channel, auto channels) {
            Sample* const row = m_outRows[channel];
            for (std::size_t i = 0; i < frames; ++i) {
                out[i * channels + channel] = Codec::fromOutput(row[i]);
            }
            std::copy(row + frames, row + m_pending, row);
        });
        m_pending = static_cast<Pending>(m_pending - frames);
    }

    // For the usual numbers of channels the stride is a constant that the compiler knows.
    template<typename Function>
    void forEachChannel(Function function)
    {
        const std::size_t channels = numChannels();
        for (std::size_t channel = 0; channel < channels; ++channel) {
            if (channels == 1) {
                function(channel, std::integral_constant<std::size_t, 1>());
            } else if (channels == 2) {
                function(channel, std::integral_constant<std::size_t, 2>());
            } else {
                function(channel, channels);
            }
        }
    }

    /// Counts what a pass wrote, and drops the input that lies behind the new read position.
    void moveOn()
    {
        m_totalOut += m_pending;
        const auto newIn = static_cast<std::uint64_t>(static_cast<double>(m_totalOut) * m_factor);
        const auto creep = std::max<std::int64_t>(0, static_cast<std::int64_t>(newIn - m_totalIn));
        const std::int64_t toKeep = m_xread - creep;
        assert(toKeep >= 0);
        dropInput(static_cast<unsigned int>(creep), m_xread);
        m_xread = static_cast<unsigned int>(toKeep);
        m_totalIn = newIn;
    }

    /// Shifts the first `end` frames of the history; how many of them are valid is the caller's.
    void dropInput(unsigned int frames, unsigned int end)
    {
        if (frames == 0 || frames >= end) {
            return;
        }
        for (Sample* const row : m_inRows) {
            std::copy(row + frames, row + end, row);
        }
    }

    int m_numChannels;
    double m_factor = 1.0; // input frames for each output frame
    double m_inRate = 1.0;
    double m_outRate = 1.0;
    std::uint64_t m_totalOut = 0;
    double m_timeOffset = 0;
    ResamplerSizes m_sizes;
    std::vector<std::vector<Sample>> m_inBuffers;
    std::vector<std::vector<Sample>> m_outBuffers;
    std::vector<Sample*> m_inRows;
    std::vector<Sample*> m_outRows;
    unsigned int m_xread; // where the next input goes
    std::uint64_t m_totalIn = 0;
    Pending m_pending = 0;
    unsigned int m_flushed = 0;
};

} // namespace audioUtils::detail
