#pragma once

#include "audioUtils/resample/HighQualityResampler.h"

namespace audioUtils {

/// HighQualityResampler for 16-bit audio, in fixed point.
///
/// Differences: output has the level of the input, rounded and clipped to 16 bits; the filter's
/// cut-off lies at 0.9 of half the lower rate; ratios of exactly 0.125 and 8 abort. Time has 15
/// fraction bits, so within a pass the ratio is rounded to 1/32768, and returns to the exact one
/// with the next pass: at ratios that this rounds much, it limits the accuracy (docs/resampling.md
/// has figures).
///
/// Each object carries a float resampler of 2 channels and medium quality as well, at a ratio of
/// 1:1: process(), processInt() and processFloat() are its, and setSamplingRate() of this class
/// does not reach it. 16-bit audio goes through processShort().
class KELDA_EXPORT HighQualityResamplerShort : public HighQualityResampler
{
public:
    /// Designs filters, and keeps the last one. One for the process; not locked.
    class KELDA_EXPORT FilterCalculator
    {
    public:
        /// The one of the process.
        static FilterCalculator& instance();
        /// One wing, its differences and its scale, as makeFilter() designs them; not again when
        /// nothing has changed.
        /// @return true
        bool calculate(std::vector<short>& imp, std::vector<short>& impD, unsigned short& lpScl,
                       const int& nwing, double rolloff, double beta);

    private:
        FilterCalculator() = default;

        std::vector<short> m_imp;
        std::vector<short> m_impD;
        unsigned short m_lpScl = 0;
        int m_lastNwing = 0;
        double m_lastRolloff = 0;
        double m_lastBeta = 0;
    };

    /// At a ratio of 1:1.
    /// @param numChannels samples of a frame
    /// @param quality     one of the four: others abort
    HighQualityResamplerShort(const int& numChannels, HighQualityResampler::FilterQuality quality);
    ~HighQualityResamplerShort() override;

    void reset() override;
    int processShort(unsigned short* in, int inSamples, unsigned short* out,
                     unsigned int& outSamples, const bool& mute, const bool& flush) override;

    /// As HighQualityResampler::setSamplingRate(), but 0.125 and 8 themselves abort, too.
    void setSamplingRate(float inRate, float outRate);
    /// As HighQualityResampler::getCurrentLatencyNs(), of the 16-bit audio.
    [[nodiscard]] long getCurrentLatencyNs() const;
    /// As HighQualityResampler::getInputBufferSize(), of the 16-bit audio.
    [[nodiscard]] unsigned int getInputBufferSize() const;
    /// As HighQualityResampler::getOutPosForInPos(), of the 16-bit audio.
    [[nodiscard]] long getOutPosForInPos(unsigned int inPos) const;

    /// A value with `scl` fraction bits as an integer: rounded, and clipped to 16 bits.
    [[nodiscard]] static short wordToShort(int v, int scl);

    /// @name One channel's inner loops
    /// As those of HighQualityResampler; `lpScl` is the scale, with 13 fraction bits.
    /// @{

    /// The filter as it was designed: for steps below 1.
    int srcUpsample(short* x, short* y, double step, unsigned short lpScl, double startTime,
                    const int& nx, const bool& interpolate);
    /// The filter stretched by `step`, so that what the output can't hold is stopped.
    int srcUpOrDownsample(short* x, short* y, double step, unsigned short lpScl, double startTime,
                          const int& nx, const bool& interpolate);
    /// Zeros.
    int srcSilence(short* x, short* y, double step, unsigned short lpScl, double startTime,
                   const int& nx);
    /// The samples at t, rounded down.
    int srcCopy(short* x, short* y, double step, unsigned short lpScl, double startTime,
                const int& nx);
    /// @}

private:
    struct KELDA_LOCAL Filter;
    struct KELDA_LOCAL State;

    KELDA_LOCAL void recalculateFilter(FilterQuality quality);
    KELDA_LOCAL unsigned int runPass(double startTime, int nx, bool mute);

    std::unique_ptr<State> m_state;
};

} // namespace audioUtils
