#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace keldaReport {

/// One channel of audio, full scale 1, at a rate in Hz.
struct Audio
{
    std::vector<float> samples;
    unsigned int rate = 0;

    [[nodiscard]] double seconds() const { return static_cast<double>(samples.size()) / rate; }

    /// Whether there is enough of it for a picture.
    [[nodiscard]] bool isDrawable() const { return samples.size() > leastStep; }

    static constexpr std::size_t leastStep = 256; ///< samples between two columns of a picture
};

/// The power of short pieces of a sound over frequency: 2048 samples each, under a window whose
/// side lobes lie 180 dB down, so that what is weak beside something loud is seen.
class ShortTimeSpectrum
{
public:
    static constexpr std::size_t length = 2048;

    ShortTimeSpectrum();
    ~ShortTimeSpectrum();
    ShortTimeSpectrum(const ShortTimeSpectrum&) = delete;
    ShortTimeSpectrum& operator=(const ShortTimeSpectrum&) = delete;

    /// The power of each frequency, from 0 to half the rate, of the samples around one; a sine of
    /// full scale has 1 in all. What lies outside the sound is silence. Valid until the next call.
    std::span<const double> around(const Audio& audio, std::ptrdiff_t sample);

private:
    struct Transform;
    std::unique_ptr<Transform> m_transform;
    std::vector<double> m_power;
};

/// The largest power of any piece within some time of a moment, at and above a frequency; dBFS.
[[nodiscard]] double loudestAbove(const Audio& audio, double hertz, double atSeconds,
                                  double withinSeconds);

/// Draws a sound's spectrogram (by gnuplot) as a PNG file, the range from -140 to 0 dBFS.
void drawSpectrogram(const std::filesystem::path& folder, const std::string& name,
                     const Audio& audio);

} // namespace keldaReport
