#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "miscUtils/Export.h"

namespace audioUtils {

/// Converts the sample rate of interleaved audio by a ratio that may change between any two calls.
///
/// Band-limited interpolation: a Kaiser-windowed sinc with its cut-off at 0.45 of the lower of the
/// two rates, in 32-bit float, whatever the type of the samples. A change of the ratio carries the
/// read position on with its fraction, so there is no step in the signal but the change of speed.
/// All buffers are made by the constructor; processing allocates nothing. Output is 1 dB below the
/// input (a factor of 0.8912509), as headroom for peaks between samples.
///
/// Caution: at a ratio of exactly 1 the input is copied, and the fractional position ignored.
/// Passing through exactly 1 (0.9999, 1, 1.0001) the signal can jump by up to a sample: callers
/// that follow a drift stay off it.
///
/// Nothing is lost: what is not consumed is to be offered again, what there was no room for is
/// handed out first by the next call. One thread at a time for each object. Counts are in samples
/// (frames times channels); numbers of samples that are no whole frames are rounded down.
///
/// ```cpp
/// HighQualityResampler resampler(2, HighQualityResampler::Best);
/// resampler.setSamplingRate(44100, 48000);
/// auto samples = static_cast<unsigned int>(out.size()); // in: room; out: what came out
/// const int taken = resampler.process(in.data(), 960, out.data(), samples, false, false);
/// ```
class KELDA_EXPORT HighQualityResampler
{
public:
    /// The length of the filter. docs/resampling.md shows what each lets pass, and costs.
    enum FilterQuality : int {
        Low,    ///< 15 zero crossings
        Medium, ///< 21 zero crossings
        High,   ///< 35 zero crossings
        Best,   ///< 65 zero crossings
    };

    /// Designs filters, and keeps the last one. One for the process; not locked.
    class KELDA_EXPORT FilterCalculator
    {
    public:
        /// The one of the process.
        static FilterCalculator& instance();
        /// One wing, as lrsLpFilter() designs it; not again when nothing has changed.
        [[nodiscard]] std::vector<double> calculate(const int& nwing, double rolloff, double beta,
                                                    int num);

    private:
        FilterCalculator() = default;

        std::vector<double> m_taps;
        int m_lastNwing = 0;
        double m_lastRolloff = 0;
        double m_lastBeta = 0;
        int m_lastNum = 0;
    };

    /// At a ratio of 1:1. The filter of a quality is designed once a process.
    /// @param numChannels samples of a frame
    /// @param quality     one of the four: others abort
    HighQualityResampler(const int& numChannels, FilterQuality quality);
    virtual ~HighQualityResampler();
    HighQualityResampler(const HighQualityResampler&) = delete;
    HighQualityResampler& operator=(const HighQualityResampler&) = delete;

    /// Forgets the signal and all counts, and returns to a ratio of 1:1: set the rates again.
    virtual void reset();

    /// process() for 16-bit samples.
    virtual int processShort(unsigned short* in, int inSamples, unsigned short* out,
                             unsigned int& outSamples, const bool& mute, const bool& flush);
    /// process() for 32-bit samples.
    virtual int processInt(unsigned int* in, int inSamples, unsigned int* out,
                           unsigned int& outSamples, const bool& mute, const bool& flush);
    /// process() for floats.
    virtual int processFloat(float* in, int inSamples, float* out, unsigned int& outSamples,
                             const bool& mute, const bool& flush);

    /// Takes and converts input, and hands out output, until one of them is used up.
    ///
    /// Integers are neither scaled nor dithered: 32-bit output is truncated and clipped, 16-bit
    /// output truncated and wrapped, with 1 dB of headroom.
    ///
    /// @tparam T         short, int or float
    /// @param in         interleaved; null: hand out what there is
    /// @param inSamples  of `in`
    /// @param out        interleaved
    /// @param outSamples in: room in `out`; out: samples written. Without room for a frame nothing
    ///                   is taken.
    /// @param mute       the input is consumed, but silence takes its place
    /// @param flush      silence follows on the input, so much that its end comes out, however many
    ///                   calls with `flush` it takes
    /// @return input samples consumed
    template<typename T>
    int process(T* in, int inSamples, T* out, unsigned int& outSamples, const bool& mute,
                const bool& flush);

    /// Changes the ratio, from the next output frame on. Costs next to nothing.
    ///
    /// @param inRate, outRate in any unit (Hz for getCurrentLatencyNs() to be in ns); with one of
    /// them
    ///                        0 the ratio is 1. Aborts unless inRate / outRate lies between 0.125
    ///                        and 8 (both included).
    void setSamplingRate(float inRate, float outRate);

    /// How much later than it was offered audio is heard: what waits in the buffers, without the
    /// filter's own delay, in ns of the input.
    [[nodiscard]] long getCurrentLatencyNs() const;

    /// Frames that the history holds.
    [[nodiscard]] unsigned int getInputBufferSize() const;

    /// Where in the output a position in the input lies (without delays), in frames.
    [[nodiscard]] long getOutPosForInPos(unsigned int inPos) const;

    /// @name One channel's inner loops
    /// For t from `startTime` while t < `startTime` + `nx`, in steps of `step` samples of `x`, one
    /// sample of `y`, times `gain`; with `interpolate`, by a linear interpolation between the
    /// entries of the filter's table. They return the samples written.
    /// @{

    /// The filter as it was designed: for steps below 1.
    int srcUpsample(float* x, float* y, double step, const float& gain, double startTime,
                    const int& nx, const bool& interpolate);
    /// The filter stretched by `step`, so that what the output can't hold is stopped.
    int srcUpOrDownsample(float* x, float* y, double step, const float& gain, double startTime,
                          const int& nx, const bool& interpolate);
    /// Zeros.
    int srcSilence(float* x, float* y, double step, const float& gain, double startTime,
                   const int& nx);
    /// The samples at t, rounded down.
    int srcCopy(float* x, float* y, double step, const float& gain, double startTime,
                const int& nx);
    /// @}

private:
    struct KELDA_LOCAL Filter;
    struct KELDA_LOCAL State;

    KELDA_LOCAL void recalculateFilter(FilterQuality quality);
    KELDA_LOCAL unsigned int runPass(double startTime, int nx, bool mute);

    std::unique_ptr<State> m_state;
};

extern template KELDA_EXPORT int HighQualityResampler::process(short*, int, short*, unsigned int&,
                                                               const bool&, const bool&);
extern template KELDA_EXPORT int HighQualityResampler::process(int*, int, int*, unsigned int&,
                                                               const bool&, const bool&);
extern template KELDA_EXPORT int HighQualityResampler::process(float*, int, float*, unsigned int&,
                                                               const bool&, const bool&);

} // namespace audioUtils
