#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "SampleLayout.h"
#include "audioUtils/resample/HighQualityResampler.h"

namespace keldaPlay {

/// Which resampler converts, and how well.
struct ResamplerChoice
{
    enum class Kind { Float, Short, GStreamer };

    Kind kind = Kind::Float;
    audioUtils::HighQualityResampler::FilterQuality quality =
        audioUtils::HighQualityResampler::Best;

    /// The same on GStreamer's scale from 1 to 10.
    [[nodiscard]] int gstreamerQuality() const;
};

/// Converts blocks from the stream's rate to the device's, and into the device's sample format.
class RateConverter
{
public:
    /// @param device how the device wants its frames
    RateConverter(const ResamplerChoice& choice, double inRate, double outRate,
                  const FrameLayout& device);
    ~RateConverter();
    RateConverter(const RateConverter&) = delete;
    RateConverter& operator=(const RateConverter&) = delete;

    /// Whether a resampler converts these rates, which adjust() then changes by up to so many ppm
    /// to either side: by a factor of up to 8, "short" by less.
    [[nodiscard]] static bool isWithinReach(const ResamplerChoice& choice, double inRate,
                                            double outRate, double adjustmentPpm);

    /// The sample format that it wants: 16-bit or float, of the processor's byte order.
    [[nodiscard]] static audioUtils::PcmFormat inputFormat(const ResamplerChoice& choice);

    /// Consumes the input faster by so much than the two rates tell, from the next block on. Not
    /// with GStreamer.
    void adjust(double ppm);

    /// Forgets the signal: what is converted next starts out of silence.
    void clear();

    /// How long the next input waits until it comes out, in ns; exact to the fraction of a frame.
    [[nodiscard]] long latencyNs() const;

    /// The same in frames of output.
    [[nodiscard]] double latencyFrames() const;

    /// How many frames of input make so many of output, on average over some blocks.
    [[nodiscard]] std::size_t inputFramesFor(std::size_t outFrames);

    /// Makes room for blocks that become so many frames: convert() allocates nothing from then on
    /// (but GStreamer does).
    void prepare(std::size_t outFrames);

    /// Takes a block of input whole.
    /// @param flush whether silence follows, so that the end comes out
    /// @return frames of output; valid until the next call
    [[nodiscard]] std::span<unsigned char> convert(std::span<unsigned char> input,
                                                   bool flush = false);

private:
    struct Resampler;
    template<typename Adapter>
    struct ResamplerOf;

    std::unique_ptr<Resampler> m_resampler;
    FrameLayout m_device;
    std::size_t m_inputBytesPerFrame;
    double m_inRate;
    double m_framesPerFrame;
    double m_position = 0;   // of the next output frame, from the next input frame on; of input
    double m_framesOwed = 0; // of input
    std::vector<unsigned char> m_output;
};

} // namespace keldaPlay
