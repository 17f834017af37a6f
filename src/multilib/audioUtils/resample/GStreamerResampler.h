#pragma once

#include <memory>
#include <string>

#include "miscUtils/Export.h"

// GStreamer's GstCaps: programs that don't ask for caps need no headers of GStreamer's.
struct _GstCaps; // NOLINT(bugprone-reserved-identifier): the name is GStreamer's

namespace audioUtils {

/// Converts interleaved audio between two integer sample rates with GStreamer's audioresample.
///
/// A private pipeline (appsrc, volume, audioresample, appsink) converts in a thread of its own;
/// each call pushes its input there and pulls what has come out. Output is 0.5 dB below the input
/// (a factor of 0.944), as headroom for peaks between samples; equal rates bypass the pipeline, and
/// leave the level alone.
///
/// Compared with HighQualityResampler: fixed ratios only, no limit to them, each call allocates and
/// may wait for the pipeline (at most 0.8 times getCurrentLatencyNs() for each buffer it looks
/// for).
///
/// What did not fit into the caller's room is kept, and handed out first by the next call. One
/// thread at a time for each object. The process operations count samples (frames times channels),
/// all others frames.
///
/// ```cpp
/// GStreamerResampler resampler(2, 44100, 48000, GStreamerResampler::Float32, 10);
/// std::vector<float> out(resampler.calculateOutputBufferSize(480) * 2);
/// auto samples = static_cast<unsigned int>(out.size()); // in: room; out: what came out
/// resampler.processFloat(in.data(), 960, out.data(), samples, false, false);
/// ```
class KELDA_EXPORT GStreamerResampler
{
public:
    /// How a sample is represented, in the processor's byte order.
    enum SampleDataType : int {
        Int16,   ///< short
        Int32,   ///< int
        Float32, ///< float, full scale 1
    };

    /// Builds the pipeline and sets it going. Aborts, with a FATAL line, when an element is missing
    /// or refuses to start.
    ///
    /// @param numChannels 1 to 63; others abort
    /// @param inRate, outRate in Hz; with one of them 0 both are 44100
    /// @param type    of the samples
    /// @param quality audioresample's, from 1 to 10 (best); its own default (4) when out of range
    GStreamerResampler(unsigned int numChannels, unsigned int inRate, unsigned int outRate,
                       SampleDataType type, int quality);
    ~GStreamerResampler();
    GStreamerResampler(const GStreamerResampler&) = delete;
    GStreamerResampler& operator=(const GStreamerResampler&) = delete;

    /// Initialises GStreamer, once a process. The constructor does it; safe from any thread.
    static void initGstreamer();

    /// Makes the logger "GStreamerResampler" write to standard error from level INFO on. The
    /// constructor does it, every time: a program that wants otherwise configures the logger
    /// afterwards.
    void initLogging();

    /// Builds a new pipeline from the present format, rates and quality, in place of the old one.
    /// @return false: an element is missing, or the pipeline does not start
    bool initPipeline();

    /// Changes the sample type and the rates (Hz), and begins anew with them; what was kept for the
    /// next call stays. Does nothing when all is as it was, unless the stream has ended.
    /// @return false: the pipeline refuses, or one of the rates is 0 (then all stays as it was)
    bool setAudioFormatAndRate(SampleDataType type, unsigned int inRate, unsigned int outRate);

    /// Changes the rates, truncated to whole Hz.
    void setSamplingRate(float inRate, float outRate);

    /// Forgets the signal, all counts and what was kept for the next call: goes on as if new, also
    /// after the input's end. At different rates the pipeline stops (GST_STATE_NULL) and starts
    /// again, which takes its thread down and up; at equal rates there is nothing in it.
    void reset();

    /// What the pipeline is given: raw interleaved audio, for speakers in the order of WAVE's
    /// channel mask. The caller owns the caps (gst_caps_unref).
    [[nodiscard]] _GstCaps* getSrcCaps() const;
    /// What the pipeline gives; otherwise as getSrcCaps().
    [[nodiscard]] _GstCaps* getSinkCaps() const;

    /// GStreamer's name of a type: "S16LE", "S32LE", "F32LE", else "UNKNOWN".
    [[nodiscard]] static std::string getGstAudioFormat(SampleDataType type);

    /// Frames of room with which the next call keeps nothing back: twice what the input makes, and
    /// what was kept. Wraps at 2^32.
    [[nodiscard]] unsigned int calculateOutputBufferSize(unsigned int inFrames) const;

    /// Input frames inside the pipeline; 0 when the stream has ended and all been handed out.
    [[nodiscard]] double calculateLatency() const;

    /// The same in ns of the input, rounded down to whole frames.
    [[nodiscard]] long getCurrentLatencyNs() const;

    /// Takes all input, and hands out output as far as there is room.
    ///
    /// At equal rates input is copied; when it exceeds the room, nothing is.
    ///
    /// @tparam T          short, int or float, as the sample type says
    /// @param in          interleaved; null: no input
    /// @param inFrames    of `in`
    /// @param out         interleaved
    /// @param outFrames   room in `out`
    /// @param endOfStream the input ends here: waits for its last frame. The process operations
    ///                    begin anew at the next call, this one takes no more input then.
    /// @return frames written
    template<typename T>
    int resample(T* in, unsigned int inFrames, T* out, unsigned int outFrames,
                 const bool& endOfStream);

    /// resample() in samples, after a change to the sample type where it is another.
    ///
    /// @param in         interleaved; null: no input
    /// @param inSamples  of `in`
    /// @param out        interleaved
    /// @param outSamples in: room in `out`; out: samples written. Unchanged when the pipeline
    ///                   refuses the type.
    /// @param mute       ignored
    /// @param flush      the input ends here; a later call begins a new stream
    /// @return `inSamples`, for all input is taken; 0 when the pipeline refuses the type
    int processShort(unsigned short* in, int inSamples, unsigned short* out,
                     unsigned int& outSamples, const bool& mute, const bool& flush);
    /// processShort() for 32-bit samples.
    int processInt(unsigned int* in, int inSamples, unsigned int* out, unsigned int& outSamples,
                   const bool& mute, const bool& flush);
    /// processShort() for floats.
    int processFloat(float* in, int inSamples, float* out, unsigned int& outSamples,
                     const bool& mute, const bool& flush);

private:
    struct KELDA_LOCAL State;
    struct KELDA_LOCAL Room;

    template<typename T>
    KELDA_LOCAL int process(SampleDataType type, T* in, int inSamples, T* out,
                            unsigned int& outSamples, bool flush);
    KELDA_LOCAL int convert(const void* in, unsigned int inFrames, const Room& room,
                            bool endOfStream);

    std::unique_ptr<State> m_state;
};

extern template KELDA_EXPORT int GStreamerResampler::resample(short*, unsigned int, short*,
                                                              unsigned int, const bool&);
extern template KELDA_EXPORT int GStreamerResampler::resample(int*, unsigned int, int*,
                                                              unsigned int, const bool&);
extern template KELDA_EXPORT int GStreamerResampler::resample(float*, unsigned int, float*,
                                                              unsigned int, const bool&);

} // namespace audioUtils
