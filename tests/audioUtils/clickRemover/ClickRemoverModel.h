#pragma once

// The click remover written out in the plainest way, to compare with sample by sample.

#include <cmath>
#include <cstdint>
#include <vector>

namespace clickRemoverModel {

constexpr std::uint64_t none = ~std::uint64_t{0};

inline double toDouble(short sample)
{
    return sample / 32767.0;
}
inline double toDouble(int sample)
{
    return sample / 2147483647.0;
}
inline double toDouble(float sample)
{
    return static_cast<double>(sample) / 3.4028234663852886e+38;
}
inline void fromDouble(short& sample, double d)
{
    sample = static_cast<short>(static_cast<int>(d * 32767.0));
}
inline void fromDouble(int& sample, double d)
{
    const double scaled = d * 2147483647.0;
    sample = scaled >= 2147483647.0    ? 2147483647
             : scaled <= -2147483648.0 ? -2147483647 - 1
                                       : static_cast<int>(scaled);
}
inline void fromDouble(float& sample, double d)
{
    sample = static_cast<float>(d * 3.4028234663852886e+38);
}

template<typename T>
struct ClickRemover
{
    std::size_t gap, margin, fadeLength;
    bool skipShort;
    std::uint64_t fadeIn = none, fadeOut = none, signalEnd = none;
    std::vector<T> line;
    std::uint64_t readPosition = 0;

    [[nodiscard]] std::size_t minimumDelay(int rate) const
    {
        return (gap + margin + 5) * static_cast<std::size_t>(rate) / 1000;
    }

    void reset()
    {
        fadeIn = fadeOut = signalEnd = none;
        readPosition = 0;
        for (T& sample : line) {
            sample = 0;
        }
    }

    std::size_t process(T* data, int rate, std::size_t channels, std::size_t frames)
    {
        if (frames == 0) {
            return line.size() / channels;
        }
        const std::size_t d = minimumDelay(rate);
        if (d > line.size()) {
            line.clear();
            line.resize(d * channels, 0);
        }
        const std::uint64_t written = line.size() / channels + readPosition;
        line.insert(line.end(), data, data + frames * channels);
        onWrite(written, data, rate, channels, frames);
        give(data, channels, frames);
        onRead(readPosition, data, rate, channels, frames);
        readPosition += frames;
        return line.size() / channels;
    }

    void give(T* data, std::size_t channels, std::size_t frames)
    {
        for (std::size_t i = 0; i < frames * channels; ++i) {
            data[i] = line[i];
        }
        line.erase(line.begin(), line.begin() + static_cast<std::ptrdiff_t>(frames * channels));
    }

    std::size_t flush(T* data, int rate, std::size_t channels, std::size_t& frames)
    {
        const std::size_t held = line.size() / channels;
        if (frames > held) {
            frames = held;
        }
        notifyUnderrun(readPosition + held);
        give(data, channels, frames);
        onRead(readPosition, data, rate, channels, frames);
        readPosition += frames;
        return line.size() / channels;
    }

    void notifyUnderrun(std::uint64_t pos) { fadeOut = signalEnd > fadeIn ? signalEnd : pos; }

    static bool hasSignal(const T* data, std::size_t channels, std::size_t frame)
    {
        for (std::size_t c = 0; c < channels; ++c) {
            if (data[frame * channels + c] != 0) {
                return true;
            }
        }
        return false;
    }

    void onWrite(std::uint64_t pos, const T* data, int rate, std::size_t channels,
                 std::size_t frames)
    {
        std::uint64_t start = signalEnd;
        for (std::size_t i = 0; i < frames; ++i) {
            if (hasSignal(data, channels, i)) {
                start = pos + i;
                break;
            }
        }
        std::uint64_t end = none;
        if (frames >= channels) {
            for (std::size_t i = frames - channels; i >= 1; --i) {
                if (hasSignal(data, channels, i)) {
                    end = pos + i;
                    break;
                }
            }
        }
        const std::uint64_t g = static_cast<std::size_t>(rate) * gap / 1000;
        if (start == none) {
        } else if (signalEnd != none && start - signalEnd <= g) {
        } else {
            fadeIn = start;
        }
        if (end != none) {
            signalEnd = end;
        } else {
            end = signalEnd;
        }
        if ((pos + frames) - end <= g || fadeOut == end) {
            return;
        }
        fadeOut = signalEnd;
    }

    void multiply(T* data, std::size_t channels, int frame, double weight)
    {
        for (std::size_t c = 0; c < channels; ++c) {
            T& sample = data[static_cast<std::size_t>(frame) * channels + c];
            fromDouble(sample, toDouble(sample) * weight);
        }
    }

    void onRead(std::uint64_t position, T* data, int rate, std::size_t channels, std::size_t count)
    {
        const auto pos = static_cast<int>(position);
        const auto frames = static_cast<int>(count);
        auto f = static_cast<int>(static_cast<std::size_t>(rate) * fadeLength / 1000);
        const auto len = static_cast<unsigned int>(fadeOut - fadeIn);
        if (len != 0 && len <= minimumDelay(rate)) {
            f = static_cast<int>(len / 2);
            if (skipShort) {
                return;
            }
        }
        if (f == 0) {
            return;
        }
        std::vector<double> window(static_cast<std::size_t>(f));
        for (int i = 0; i < f; ++i) {
            window[static_cast<std::size_t>(i)] =
                (1 - std::cos(i * 6.283185307179586 / (2 * f))) * 0.5;
        }
        const auto clamp = [frames](int value) {
            return value < 0 ? 0 : value > frames ? frames : value;
        };
        const auto m = static_cast<int>(static_cast<std::size_t>(rate) * margin / 1000);
        int e = 0;
        int outEnd = 0;
        if (fadeOut != none) {
            outEnd = static_cast<int>(fadeOut) + 1 - m;
            const int outStart = outEnd - f;
            int a = outStart - pos;
            const int b = outEnd - pos;
            if (!(a < 0 && b < 0)) {
                a = clamp(a);
                e = clamp(b);
                for (int i = a; i < e; ++i) {
                    multiply(data, channels, i, window[static_cast<std::size_t>(b - 1 - i)]);
                }
            }
        }
        if (fadeIn == none) {
            return;
        }
        const int inStart = static_cast<int>(fadeIn) + m;
        const int inEnd = inStart + f;
        const int c = clamp(inStart - pos);
        const int h = clamp(inEnd - pos);
        if (e < c) {
            for (int i = e; i < c; ++i) {
                multiply(data, channels, i, 0);
                for (std::size_t n = 0; n < channels; ++n) {
                    data[static_cast<std::size_t>(i) * channels + n] = 0;
                }
            }
        } else if (inEnd < outEnd) {
            for (int i = e; i < frames; ++i) {
                for (std::size_t n = 0; n < channels; ++n) {
                    data[static_cast<std::size_t>(i) * channels + n] = 0;
                }
            }
        }
        for (int i = c; i < h; ++i) {
            multiply(data, channels, i, window[static_cast<std::size_t>(i + pos - inStart)]);
        }
    }
};

} // namespace clickRemoverModel
