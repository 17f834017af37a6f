#include "audioUtils/clickRemover/ClickRemover.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <ostream>
#include <type_traits>

#include "audioUtils/detail/Log.h"

namespace audioUtils {

namespace {

const log4cplus::Logger logger = log4cplus::Logger::getInstance("ClickRemover");

constexpr double twoPi = 6.283185307179586;
constexpr std::size_t reserveMs = 5; // of the delay, beyond what the fades need
constexpr std::size_t notFound = ~std::size_t{0};

/// Prints a position; -1 is none.
template<typename Position>
struct Printed
{
    explicit Printed(Position value) : position(value) {}

    Position position;
};

template<typename Position>
std::ostream& operator<<(std::ostream& out, const Printed<Position>& printed)
{
    return printed.position == static_cast<Position>(-1) ? out << "Invalid"
                                                         : out << printed.position;
}

// Positions are 32-bit numbers here, on purpose, and wrap.
std::int32_t narrow(StreamPosition position)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(position));
}

std::int32_t sum(std::int32_t a, std::int32_t b)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

std::int32_t difference(std::int32_t a, std::int32_t b)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b));
}

std::size_t framesIn(std::int32_t sampleRate, std::size_t milliseconds)
{
    return static_cast<std::size_t>(sampleRate) * milliseconds / 1000;
}

// Whole chunks are tested without a branch, which the compiler turns into vectors.
constexpr std::size_t chunkSamples = 64;

template<typename T>
bool isSilent(const T* samples)
{
    unsigned int signal = 0;
    for (std::size_t i = 0; i < chunkSamples; ++i) {
        signal |= static_cast<unsigned int>(samples[i] != 0);
    }
    return signal == 0;
}

/// The first sample in [begin, end) that is not 0, or notFound.
template<typename T>
std::size_t firstSignal(const T* data, std::size_t begin, std::size_t end)
{
    while (end - begin >= chunkSamples && isSilent(data + begin)) {
        begin += chunkSamples;
    }
    for (; begin < end; ++begin) {
        if (data[begin] != 0) {
            return begin;
        }
    }
    return notFound;
}

/// The last one.
template<typename T>
std::size_t lastSignal(const T* data, std::size_t begin, std::size_t end)
{
    while (end - begin >= chunkSamples && isSilent(data + end - chunkSamples)) {
        end -= chunkSamples;
    }
    for (; end > begin; --end) {
        if (data[end - 1] != 0) {
            return end - 1;
        }
    }
    return notFound;
}

/// Swaps samples by copies of whole chunks, which stay in registers.
template<typename T>
void swapSamples(T* a, T* b, std::size_t samples)
{
    const auto swapSome = [&](std::size_t count) {
        T kept[chunkSamples];
        std::copy_n(a, count, kept);
        std::copy_n(b, count, a);
        std::copy_n(kept, count, b);
        a += count;
        b += count;
    };
    for (; samples >= chunkSamples; samples -= chunkSamples) {
        swapSome(chunkSamples);
    }
    swapSome(samples);
}

template<typename T>
struct Scale;

template<>
struct Scale<short>
{
    static constexpr double fullScale = 32767.0;
};

template<>
struct Scale<int>
{
    static constexpr double fullScale = 2147483647.0;
};

// So that only the product with a weight changes a sample.
template<>
struct Scale<float>
{
    static constexpr double fullScale = 3.4028234663852886e+38;
};

int saturated(double value)
{
    using Limits = std::numeric_limits<int>;
    return value >= Limits::max()  ? Limits::max()
           : value > Limits::min() ? static_cast<int>(value)
                                   : Limits::min();
}

} // namespace

template<typename T>
ClickRemover<T>::ClickRemover(const std::size_t& gap, const std::size_t& margin,
                              const std::size_t& fadeLength, const bool& skipShortSignals)
    : m_gap(gap), m_margin(margin), m_fadeLength(fadeLength), m_skipShortSignals(skipShortSignals)
{
    reset();
}

template<typename T>
std::size_t ClickRemover<T>::process(T* data, int sampleRate, std::size_t channels,
                                     std::size_t frames)
{
    if (frames == 0) {
        return m_line.size() / channels;
    }
    const std::size_t delay = minimumDelay(sampleRate);
    if (delay > m_line.size()) { // frames against samples, on purpose
        m_line.assign(delay * channels, T{0});
        m_first = 0;
        m_window.reserve(std::max(framesIn(sampleRate, m_fadeLength), delay / 2)); // of any fade
    }
    onWrite(m_line.size() / channels + m_readPosition, data, sampleRate, channels, frames);
    exchange(data, frames * channels);
    onRead(m_readPosition, data, sampleRate, channels, frames);
    m_readPosition += frames;
    return m_line.size() / channels;
}

/// Gives the line's oldest samples for as many new ones. As the line keeps its length, the new ones
/// stand where the old ones stood, and nothing else has to be moved.
template<typename T>
void ClickRemover<T>::exchange(T* data, std::size_t samples)
{
    if (samples > m_line.size()) {
        alignLine();
        T* const rest = data + samples - m_line.size();
        swapSamples(m_line.data(), rest, m_line.size());
        std::rotate(data, rest, data + samples);
        return;
    }
    const std::size_t toEnd = std::min(samples, m_line.size() - m_first);
    T* const first = m_line.data() + m_first;
    swapSamples(data, first, toEnd);
    swapSamples(data + toEnd, m_line.data(), samples - toEnd);
    m_first += samples;
    m_first -= m_first >= m_line.size() ? m_line.size() : 0;
}

/// Brings the oldest sample to the front.
template<typename T>
void ClickRemover<T>::alignLine()
{
    std::rotate(m_line.begin(), m_line.begin() + static_cast<std::ptrdiff_t>(m_first),
                m_line.end());
    m_first = 0;
}

template<typename T>
std::size_t ClickRemover<T>::flush(T* data, int sampleRate, std::size_t channels,
                                   std::size_t& frames)
{
    const std::size_t held = m_line.size() / channels;
    frames = std::min(frames, held);
    notifyUnderrun(m_readPosition + held, sampleRate);
    alignLine();
    const auto end = m_line.begin() + static_cast<std::ptrdiff_t>(frames * channels);
    std::copy(m_line.begin(), end, data);
    m_line.erase(m_line.begin(), end);
    onRead(m_readPosition, data, sampleRate, channels, frames);
    m_readPosition += frames;
    return m_line.size() / channels;
}

template<typename T>
void ClickRemover<T>::notifyUnderrun(StreamPosition pos, int /*sampleRate*/)
{
    m_fadeOut = m_signalEnd > m_fadeIn ? m_signalEnd : pos;
}

template<typename T>
void ClickRemover<T>::onWrite(StreamPosition pos, T* data, std::int32_t sampleRate,
                              std::size_t channels, std::size_t frames)
{
    StreamPosition start = m_signalEnd;
    if (const std::size_t first = firstSignal(data, 0, frames * channels); first != notFound) {
        start = pos + first / channels;
    }
    // The search begins as many frames before the block's end as there are channels, and leaves the
    // first frame out: on purpose.
    StreamPosition end = none;
    if (frames > channels) {
        const std::size_t last = lastSignal(data, channels, (frames - channels + 1) * channels);
        end = last != notFound ? pos + last / channels : none;
    }
    KELDA_LOG(logger, TRACE,
              "onWrite(), pos = " << Printed{pos} << ", signalStart = " << Printed{start}
                                  << ", signalEnd = " << Printed{end});

    const std::size_t gap = framesIn(sampleRate, m_gap);
    const bool goesOn = m_signalEnd != none && start - m_signalEnd <= gap;
    if (start != none && !goesOn) {
        KELDA_LOG(logger, DEBUG, "Fade in required at " << Printed{start});
        m_fadeIn = start;
    }
    if (end != none) {
        m_signalEnd = end;
    } else {
        end = m_signalEnd;
    }
    if (pos + frames - end <= gap || m_fadeOut == end) {
        return;
    }
    KELDA_LOG(logger, DEBUG, "Fade out required at " << Printed{end});
    m_fadeOut = m_signalEnd;
}

template<typename T>
void ClickRemover<T>::onRead(StreamPosition pos, T* data, std::int32_t sampleRate,
                             std::size_t channels, std::size_t frames)
{
    auto fadeFrames = static_cast<std::int32_t>(framesIn(sampleRate, m_fadeLength));
    if (!limitFade(fadeFrames, sampleRate) || fadeFrames <= 0) {
        return;
    }
    recalculateWindow(static_cast<std::size_t>(fadeFrames));
    const auto margin = static_cast<std::int32_t>(framesIn(sampleRate, m_margin));
    const std::int32_t position = narrow(pos);
    const auto clamped = [length = static_cast<std::int32_t>(frames)](std::int32_t frame) {
        return std::clamp(frame, 0, length);
    };

    std::int32_t faded = 0; // up to here
    std::int32_t outEnd = 0;
    if (m_fadeOut != none) {
        outEnd = difference(sum(narrow(m_fadeOut), 1), margin);
        const std::int32_t outStart = difference(outEnd, fadeFrames);
        const std::int32_t from = difference(outStart, position);
        const std::int32_t to = difference(outEnd, position);
        if (from >= 0 || to >= 0) {
            faded = clamped(to);
            if (faded != clamped(from)) {
                KELDA_LOG(logger, DEBUG,
                          "read at " << Printed{position} << ", fade out: " << Printed{outStart}
                                     << " -> " << Printed{outEnd} << " (" << clamped(from) << " -> "
                                     << faded << ")");
                fade(data, channels, clamped(from), faded,
                     difference(difference(to, 1), clamped(from)), -1);
            }
        }
    }
    if (m_fadeIn == none) {
        return;
    }
    const std::int32_t inStart = sum(narrow(m_fadeIn), margin);
    const std::int32_t inEnd = sum(inStart, fadeFrames);
    const std::int32_t from = clamped(difference(inStart, position));
    const std::int32_t to = clamped(difference(inEnd, position));
    const auto silence = [&](std::int32_t begin, std::int32_t end) {
        std::fill(data + static_cast<std::size_t>(begin) * channels,
                  data + static_cast<std::size_t>(end) * channels, T{0});
    };
    if (faded < from) {
        silence(faded, from);
    } else if (inEnd < outEnd) { // what fades in is an earlier signal
        silence(faded, static_cast<std::int32_t>(frames));
    }
    if (from != to) {
        KELDA_LOG(logger, DEBUG,
                  "read at " << Printed{position} << ", fade in: " << Printed{inStart} << " -> "
                             << Printed{inEnd} << " (" << from << " -> " << to << ")");
        const std::int32_t first = difference(position, inStart);
        fade(data, channels, from, to, sum(from, first), 1);
    }
}

/// Lets the two fades of a short signal meet in its middle.
/// @return false when it is to be left as it is
template<typename T>
bool ClickRemover<T>::limitFade(std::int32_t& fadeFrames, std::int32_t sampleRate) const
{
    const std::uint32_t length =
        static_cast<std::uint32_t>(m_fadeOut) - static_cast<std::uint32_t>(m_fadeIn);
    if (length == 0) {
        return true;
    }
    const bool isShort = length <= minimumDelay(sampleRate);
    if (isShort) {
        fadeFrames = static_cast<std::int32_t>(length / 2);
    }
    const bool isLeft = isShort && m_skipShortSignals;
    if (isLeft) {
        KELDA_LOG(logger, TRACE, "Too short signal detected (" << length << " frames)");
    }
    KELDA_LOG(logger, TRACE, "Signal detected (" << length << " frames)");
    return !isLeft;
}

template<typename T>
void ClickRemover<T>::fade(T* data, std::size_t channels, std::int32_t from, std::int32_t to,
                           std::int32_t index, std::int32_t step) const
{
    for (std::int32_t frame = from; frame < to; ++frame, index += step) {
        const double weight = m_window[static_cast<std::size_t>(index)];
        T* const samples = data + static_cast<std::size_t>(frame) * channels;
        for (std::size_t c = 0; c < channels; ++c) {
            samples[c] = fromDouble(toDouble(samples[c]) * weight);
        }
    }
}

template<typename T>
std::size_t ClickRemover<T>::minimumDelay(int sampleRate) const
{
    return (m_gap + m_margin + reserveMs) * static_cast<std::size_t>(sampleRate) / 1000;
}

template<typename T>
void ClickRemover<T>::recalculateWindow(std::size_t length)
{
    if (length == m_window.size()) {
        return;
    }
    m_window.resize(length);
    for (std::size_t i = 0; i < length; ++i) {
        m_window[i] =
            (1 - std::cos(static_cast<double>(i) * twoPi / (2 * static_cast<double>(length)))) *
            0.5;
    }
}

template<typename T>
void ClickRemover<T>::reset()
{
    m_fadeIn = none;
    m_fadeOut = none;
    m_signalEnd = none;
    m_readPosition = 0;
    std::fill(m_line.begin(), m_line.end(), T{0});
}

template<typename T>
double ClickRemover<T>::toDouble(const T& sample)
{
    return static_cast<double>(sample) / Scale<T>::fullScale;
}

// Integers are truncated; 16 bits are the low ones of 32.
template<typename T>
T ClickRemover<T>::fromDouble(const double& value)
{
    const double sample = value * Scale<T>::fullScale;
    if constexpr (std::is_same_v<T, float>) {
        return static_cast<float>(sample);
    } else {
        return static_cast<T>(saturated(sample));
    }
}

template class ClickRemover<short>;
template class ClickRemover<int>;
template class ClickRemover<float>;

} // namespace audioUtils
