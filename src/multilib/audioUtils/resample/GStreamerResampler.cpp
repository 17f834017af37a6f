#include "audioUtils/resample/GStreamerResampler.h"

#include <algorithm>
#include <atomic>
#include <cassert>
#include <cstdint>
#include <mutex>

#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <gst/gst.h>
#include <log4cplus/configurator.h>
#include <log4cplus/helpers/property.h>

#include "audioUtils/detail/GstHandle.h"
#include "audioUtils/detail/Log.h"

namespace audioUtils {

using detail::GstHandle;
using detail::ownElement;

namespace {

const log4cplus::Logger logger = log4cplus::Logger::getInstance("GStreamerResampler");

constexpr unsigned int maxChannels = 63; // beyond, GStreamer does not convert but crash
constexpr unsigned int defaultRate = 44100;
constexpr std::uint64_t nanosecondsPerSecond = 1'000'000'000;
constexpr double safetyAttenuationInDb = -0.5;
constexpr double safetyAttenuation = 0.944060876; // 10^(-0.5 / 20)
constexpr double partOfLatencyToWait = 0.8;

std::size_t bytesPerSample(GStreamerResampler::SampleDataType type)
{
    return type == GStreamerResampler::Int16 ? sizeof(short) : sizeof(int);
}

// Speakers in the order of WAVE's mask, from the first on.
std::uint64_t channelMask(unsigned int numChannels)
{
    return (std::uint64_t{1} << numChannels) - 1;
}

GstAppSrc* appSource(const GstHandle<GstElement>& element)
{
    return GST_APP_SRC(element.get());
}

GstAppSink* appSink(const GstHandle<GstElement>& element)
{
    return GST_APP_SINK(element.get());
}

void onEndOfStream(GstElement* /*sink*/, std::atomic<bool>* eosReached)
{
    KELDA_LOG(logger, DEBUG, "EOS reached");
    *eosReached = true;
}

} // namespace

/// Where output goes: its room, and what has been written.
struct GStreamerResampler::Room
{
    unsigned char* begin;
    unsigned int frames;
    std::size_t bytesPerFrame;
};

struct GStreamerResampler::State
{
    State(unsigned int channels, unsigned int in, unsigned int out, SampleDataType type,
          int wantedQuality)
        : numChannels(channels), inRate(in), outRate(out), quality(wantedQuality), sampleType(type)
    {
    }
    ~State() { stop(); }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    /// Puts the new elements in a row into a new pipeline.
    [[nodiscard]] bool build();
    [[nodiscard]] GstHandle<GstCaps> caps(unsigned int rate) const;
    void setCaps() const;
    /// Ends the pipeline's thread.
    void stop() const;
    [[nodiscard]] GstStateChangeReturn start();
    [[nodiscard]] bool restart();
    void clearCounters();

    [[nodiscard]] bool isBypassed() const { return inRate == outRate; }
    [[nodiscard]] std::uint64_t durationOf(std::uint64_t frames) const
    {
        return gst_util_uint64_scale(frames, nanosecondsPerSecond, inRate);
    }
    [[nodiscard]] std::uint64_t latencyFrames() const;
    [[nodiscard]] std::uint64_t latencyNs() const { return durationOf(latencyFrames()); }

    void push(const void* frames, unsigned int numFrames, std::size_t bytesPerFrame);
    void endStream();
    [[nodiscard]] unsigned int deliver(GstBuffer* buffer, const Room& room, unsigned int written);
    [[nodiscard]] unsigned int deliverLeftover(const Room& room);
    [[nodiscard]] unsigned int pull(const Room& room, unsigned int written,
                                    std::uint64_t inDurationNs);
    [[nodiscard]] unsigned int pullToTheEnd(const Room& room, unsigned int written);
    [[nodiscard]] bool pullOne(GstClockTime timeout, const Room& room, unsigned int& written);
    void keepTheEnd();
    void keep(GstBuffer* buffer, std::size_t fromByte, std::size_t bytesPerFrame);
    void releaseLeftover();

    unsigned int numChannels;
    unsigned int inRate;  // Hz
    unsigned int outRate; // Hz
    int quality;
    SampleDataType sampleType;
    std::uint64_t pushedFrames = 0; // since the pipeline was started
    std::uint64_t pulledFrames = 0;
    std::atomic<bool> eosReached = false; // set by the pipeline's thread, too
    GstHandle<GstElement> pipeline;       // holds the others
    GstHandle<GstElement> source;
    GstHandle<GstElement> volume;
    GstHandle<GstElement> resampler;
    GstHandle<GstElement> sink;
    GstHandle<GstBuffer> leftover; // converted, and not yet delivered
    unsigned int leftoverFrames = 0;
    bool sourceEnded = false; // it takes no more input
    bool mustRestart = false; // the pipeline did not start
};

bool GStreamerResampler::State::build()
{
    stop();
    pipeline = ownElement(gst_pipeline_new("pipeline"));
    source = ownElement(gst_element_factory_make("appsrc", "source"));
    volume = ownElement(gst_element_factory_make("volume", "volume"));
    resampler = ownElement(gst_element_factory_make("audioresample", "resampler"));
    sink = ownElement(gst_element_factory_make("appsink", "sink"));
    if (!pipeline || !source || !volume || !resampler || !sink) {
        return false;
    }
    gst_bin_add_many(GST_BIN(pipeline.get()), source.get(), volume.get(), resampler.get(),
                     sink.get(), nullptr);
    return gst_element_link_many(source.get(), volume.get(), resampler.get(), sink.get(),
                                 nullptr) != FALSE;
}

GstHandle<GstCaps> GStreamerResampler::State::caps(unsigned int rate) const
{
    return GstHandle<GstCaps>(gst_caps_new_simple(
        "audio/x-raw", "format", G_TYPE_STRING, getGstAudioFormat(sampleType).c_str(), "channels",
        G_TYPE_INT, static_cast<int>(numChannels), "rate", G_TYPE_INT, static_cast<int>(rate),
        "layout", G_TYPE_STRING, "interleaved", "channel-mask", GST_TYPE_BITMASK,
        channelMask(numChannels), nullptr));
}

void GStreamerResampler::State::setCaps() const
{
    gst_app_src_set_caps(appSource(source), caps(inRate).get());
    gst_app_sink_set_caps(appSink(sink), caps(outRate).get());
}

void GStreamerResampler::State::stop() const
{
    if (pipeline) {
        gst_element_set_state(pipeline.get(), GST_STATE_NULL);
    }
}

GstStateChangeReturn GStreamerResampler::State::start()
{
    const GstStateChangeReturn result = gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
    sourceEnded = false;
    mustRestart = result != GST_STATE_CHANGE_SUCCESS;
    return result;
}

void GStreamerResampler::State::clearCounters()
{
    pushedFrames = 0;
    pulledFrames = 0;
    eosReached = false;
}

// The counters follow the stop: until then the pipeline's thread may still report its end.
bool GStreamerResampler::State::restart()
{
    stop();
    clearCounters();
    setCaps();
    return start() == GST_STATE_CHANGE_SUCCESS;
}

// What was kept of an earlier stream counts as pulled, too, but was never pushed into this one.
std::uint64_t GStreamerResampler::State::latencyFrames() const
{
    if (isBypassed() || (eosReached && leftoverFrames == 0)) {
        return 0;
    }
    const std::uint64_t pulled = gst_util_uint64_scale(pulledFrames, inRate, outRate);
    return pushedFrames > pulled ? pushedFrames - pulled : 0;
}

void GStreamerResampler::State::push(const void* frames, unsigned int numFrames,
                                     std::size_t bytesPerFrame)
{
    // Without its time the converter would not know that it has to drain at the end.
    GstBuffer* const buffer = gst_buffer_new_memdup(frames, numFrames * bytesPerFrame);
    GST_BUFFER_PTS(buffer) = durationOf(pushedFrames);
    GST_BUFFER_DURATION(buffer) = durationOf(pushedFrames + numFrames) - GST_BUFFER_PTS(buffer);
    if (gst_app_src_push_buffer(appSource(source), buffer) != GST_FLOW_OK) {
        KELDA_LOG(logger, ERROR, "Failed to push buffer to appsrc");
        return;
    }
    pushedFrames += numFrames;
}

void GStreamerResampler::State::endStream()
{
    gst_app_src_end_of_stream(appSource(source));
    sourceEnded = true;
}

unsigned int GStreamerResampler::State::deliver(GstBuffer* buffer, const Room& room,
                                                unsigned int written)
{
    const std::size_t size = gst_buffer_get_size(buffer);
    const std::size_t frames =
        std::min<std::size_t>(size / room.bytesPerFrame, room.frames - written);
    if (frames > 0) {
        gst_buffer_extract(buffer, 0, room.begin + written * room.bytesPerFrame,
                           frames * room.bytesPerFrame);
    }
    pulledFrames += frames;
    return static_cast<unsigned int>(frames);
}

unsigned int GStreamerResampler::State::deliverLeftover(const Room& room)
{
    if (!leftover) {
        return 0;
    }
    const unsigned int written = deliver(leftover.get(), room, 0);
    KELDA_LOG(logger, TRACE,
              "Consuming " << written << " frames from the previous resample() call");
    const GstHandle<GstBuffer> rest = std::move(leftover);
    keep(rest.get(), written * room.bytesPerFrame, room.bytesPerFrame);
    return written;
}

/// Keeps a buffer's end for the next call, behind what is kept already.
void GStreamerResampler::State::keep(GstBuffer* buffer, std::size_t fromByte,
                                     std::size_t bytesPerFrame)
{
    if (gst_buffer_get_size(buffer) - fromByte >= bytesPerFrame) {
        GstBuffer* const rest =
            gst_buffer_copy_region(buffer, GST_BUFFER_COPY_MEMORY, fromByte, gsize(-1));
        leftover.reset(leftover ? gst_buffer_append(leftover.release(), rest) : rest);
    }
    leftoverFrames =
        leftover ? static_cast<unsigned int>(gst_buffer_get_size(leftover.get()) / bytesPerFrame)
                 : 0;
}

void GStreamerResampler::State::releaseLeftover()
{
    leftover.reset();
    leftoverFrames = 0;
}

/// Waits for a piece of output and delivers what fits.
/// @return whether there was one
bool GStreamerResampler::State::pullOne(GstClockTime timeout, const Room& room,
                                        unsigned int& written)
{
    const GstHandle<GstSample> sample(gst_app_sink_try_pull_sample(appSink(sink), timeout));
    if (!sample) {
        return false;
    }
    GstBuffer* const buffer = gst_sample_get_buffer(sample.get());
    const unsigned int frames = deliver(buffer, room, written);
    written += frames;
    keep(buffer, frames * room.bytesPerFrame, room.bytesPerFrame);
    if (leftoverFrames > 0) {
        KELDA_LOG(logger, TRACE, leftoverFrames << " frames not consumed in this resample() call");
    }
    return true;
}

unsigned int GStreamerResampler::State::pull(const Room& room, unsigned int written,
                                             std::uint64_t inDurationNs)
{
    auto timeout =
        static_cast<GstClockTime>(partOfLatencyToWait * static_cast<double>(latencyNs()));
    while (written < room.frames && pullOne(timeout, room, written)) {
        if (latencyNs() < inDurationNs) {
            timeout = 0; // the pipeline holds less than this call's input: no need to wait
        }
    }
    return written;
}

/// Pulls until the stream's end, or until a piece has to be kept, so that whether the end was
/// reached does not depend on how fast the pipeline's thread is to report it.
unsigned int GStreamerResampler::State::pullToTheEnd(const Room& room, unsigned int written)
{
    if (written == room.frames && leftover) {
        return written;
    }
    do {
        if (!pullOne(GST_CLOCK_TIME_NONE, room, written)) {
            eosReached = true;
            break;
        }
    } while (!leftover);
    return written;
}

/// Takes what the ended pipeline still holds, so that it may begin anew.
void GStreamerResampler::State::keepTheEnd()
{
    const std::size_t bytesPerFrame = numChannels * bytesPerSample(sampleType);
    while (const GstHandle<GstSample> sample{gst_app_sink_pull_sample(appSink(sink))}) {
        keep(gst_sample_get_buffer(sample.get()), 0, bytesPerFrame);
    }
}

GStreamerResampler::GStreamerResampler(unsigned int numChannels, unsigned int inRate,
                                       unsigned int outRate, SampleDataType type, int quality)
    : m_state(std::make_unique<State>(numChannels, inRate, outRate, type, quality))
{
    assert(numChannels >= 1 && numChannels <= maxChannels);
    initGstreamer();
    initLogging();
    if (inRate == 0 || outRate == 0) {
        KELDA_LOG(logger, INFO, "No rates specified, assuming 44.1kHz");
        m_state->inRate = defaultRate;
        m_state->outRate = defaultRate;
    }
    if (!initPipeline()) {
        KELDA_LOG(logger, FATAL, "Unable to initialize gstreamer pipeline!");
        assert(false);
    }
}

GStreamerResampler::~GStreamerResampler() = default;

void GStreamerResampler::initGstreamer()
{
    static std::once_flag once;
    std::call_once(once, [] { gst_init(nullptr, nullptr); });
}

void GStreamerResampler::initLogging()
{
    log4cplus::helpers::Properties properties;
    properties.setProperty("log4cplus.appender.console", "log4cplus::ConsoleAppender");
    properties.setProperty("log4cplus.appender.console.layout", "log4cplus::PatternLayout");
    properties.setProperty("log4cplus.appender.console.layout.ConversionPattern",
                           "## %d{%H:%M:%S,%q} %p: %m%n");
    properties.setProperty("log4cplus.appender.console.logToStdErr", "true");
    properties.setProperty("log4cplus.logger.GStreamerResampler", "INFO, console");
    log4cplus::PropertyConfigurator(properties).configure();
}

bool GStreamerResampler::initPipeline()
{
    State& state = *m_state;
    if (!state.build()) {
        return false;
    }
    KELDA_LOG(logger, DEBUG,
              "Setting safety attenuation to " << safetyAttenuationInDb
                                               << " dB (linear attenuation = " << safetyAttenuation
                                               << ")");
    g_object_set(state.volume.get(), "volume", safetyAttenuation, nullptr);
    if (state.quality >= 1 && state.quality <= 10) {
        KELDA_LOG(logger, DEBUG, "Setting conversion quality level to " << state.quality);
        g_object_set(state.resampler.get(), "quality", state.quality, nullptr);
    } else {
        KELDA_LOG(logger, ERROR,
                  "Conversion quality level out of range <1;10>, using the default quality level");
    }
    g_object_set(state.source.get(), "format", GST_FORMAT_TIME, nullptr);
    state.setCaps();
    g_object_set(state.sink.get(), "async", FALSE, "sync", FALSE, nullptr);
    g_signal_connect(state.sink.get(), "eos", G_CALLBACK(onEndOfStream), &state.eosReached);

    const GstStateChangeReturn result = state.start();
    if (result != GST_STATE_CHANGE_SUCCESS) {
        KELDA_LOG(logger, ERROR,
                  "Unable to configure pipeline for conversion from "
                      << state.inRate << " to " << state.outRate << " with quality of "
                      << state.quality
                      << ". Failure = " << gst_element_state_change_return_get_name(result));
        return false;
    }
    KELDA_LOG(logger, DEBUG,
              "Conversion pipeline from " << state.inRate << " to " << state.outRate
                                          << " with quality of " << state.quality
                                          << " has been successfully configured");
    return true;
}

bool GStreamerResampler::setAudioFormatAndRate(SampleDataType type, unsigned int inRate,
                                               unsigned int outRate)
{
    State& state = *m_state;
    const bool isSame =
        type == state.sampleType && inRate == state.inRate && outRate == state.outRate;
    if (isSame && !state.eosReached && !state.sourceEnded && !state.mustRestart) {
        return true;
    }
    const auto logFailure = [type] {
        KELDA_LOG(logger, ERROR,
                  "Failed to reconfigure pipeline to audio format '" << getGstAudioFormat(type)
                                                                     << "'!");
        return false;
    };
    if (inRate != outRate && (inRate == 0 || outRate == 0)) {
        return logFailure();
    }
    if (state.sourceEnded && type == state.sampleType) {
        state.keepTheEnd();
    }
    state.sampleType = type;
    state.inRate = inRate;
    state.outRate = outRate;
    if (state.isBypassed()) {
        KELDA_LOG(logger, TRACE,
                  "Identical sampling rates configured, there's no need to reconfigure GStreamer "
                  "pipeline");
        return true;
    }
    if (!state.restart()) {
        return logFailure();
    }
    KELDA_LOG(logger, DEBUG,
              "Successfully reconfigured pipeline to audio format '" << getGstAudioFormat(type)
                                                                     << "'!");
    return true;
}

void GStreamerResampler::setSamplingRate(float inRate, float outRate)
{
    if (setAudioFormatAndRate(m_state->sampleType, static_cast<unsigned int>(inRate),
                              static_cast<unsigned int>(outRate))) {
        KELDA_LOG(logger, DEBUG,
                  "Reconfigured conversion: " << inRate << " Hz -> " << outRate << " Hz");
    } else {
        KELDA_LOG(logger, ERROR,
                  "Failed to configure conversion from " << inRate << " Hz to " << outRate
                                                         << " Hz");
    }
}

void GStreamerResampler::reset()
{
    KELDA_LOG(logger, DEBUG, "Resetting resampler");
    State& state = *m_state;
    state.releaseLeftover();
    if (!state.isBypassed()) {
        // Flushing would not do: after its end of stream a source takes no more input.
        static_cast<void>(state.restart());
    } else {
        state.clearCounters();
    }
}

GstCaps* GStreamerResampler::getSrcCaps() const
{
    return m_state->caps(m_state->inRate).release();
}

GstCaps* GStreamerResampler::getSinkCaps() const
{
    return m_state->caps(m_state->outRate).release();
}

std::string GStreamerResampler::getGstAudioFormat(SampleDataType type)
{
    switch (type) {
    case Int16:
        return "S16LE";
    case Int32:
        return "S32LE";
    case Float32:
        return "F32LE";
    }
    return "UNKNOWN";
}

unsigned int GStreamerResampler::calculateOutputBufferSize(unsigned int inFrames) const
{
    const State& state = *m_state;
    if (state.isBypassed()) {
        return inFrames;
    }
    const unsigned int result = state.outRate * inFrames * 2 / state.inRate + state.leftoverFrames;
    KELDA_LOG(logger, TRACE, "Input size " << inFrames << " to output size " << result);
    return result;
}

double GStreamerResampler::calculateLatency() const
{
    return static_cast<double>(m_state->latencyFrames());
}

long GStreamerResampler::getCurrentLatencyNs() const
{
    return m_state->isBypassed() ? 0 : static_cast<long>(m_state->latencyNs());
}

int GStreamerResampler::convert(const void* in, unsigned int inFrames, const Room& room,
                                bool endOfStream)
{
    State& state = *m_state;
    if (state.mustRestart && !state.restart()) {
        return 0;
    }
    unsigned int written = state.deliverLeftover(room);
    if (in != nullptr && inFrames > 0) {
        state.push(in, inFrames, room.bytesPerFrame);
    }
    if (endOfStream) {
        state.endStream();
        written = state.pullToTheEnd(room, written);
    } else {
        written = state.pull(room, written, state.durationOf(inFrames));
    }
    KELDA_LOG(logger, TRACE,
              "Consumed " << inFrames << " frames, produced " << written << " frames");
    return static_cast<int>(written);
}

template<typename T>
int GStreamerResampler::resample(T* in, unsigned int inFrames, T* out, unsigned int outFrames,
                                 const bool& endOfStream)
{
    State& state = *m_state;
    if (!state.isBypassed()) {
        return convert(
            in, inFrames,
            {reinterpret_cast<unsigned char*>(out), outFrames, state.numChannels * sizeof(T)},
            endOfStream);
    }
    if (in == nullptr || inFrames > outFrames) {
        return 0;
    }
    std::copy_n(in, std::size_t{inFrames} * state.numChannels, out);
    state.pushedFrames += inFrames;
    state.pulledFrames += inFrames;
    return static_cast<int>(inFrames);
}

template<typename T>
int GStreamerResampler::process(SampleDataType type, T* in, int inSamples, T* out,
                                unsigned int& outSamples, bool flush)
{
    State& state = *m_state;
    if (!setAudioFormatAndRate(type, state.inRate, state.outRate)) {
        return 0;
    }
    const unsigned int inFrames =
        static_cast<unsigned int>(std::max(inSamples, 0)) / state.numChannels;
    const int produced = resample(in, inFrames, out, outSamples / state.numChannels, flush);
    outSamples = state.numChannels * static_cast<unsigned int>(produced);
    return inSamples;
}

int GStreamerResampler::processShort(unsigned short* in, int inSamples, unsigned short* out,
                                     unsigned int& outSamples, const bool& /*mute*/,
                                     const bool& flush)
{
    return process(Int16, reinterpret_cast<short*>(in), inSamples, reinterpret_cast<short*>(out),
                   outSamples, flush);
}

int GStreamerResampler::processInt(unsigned int* in, int inSamples, unsigned int* out,
                                   unsigned int& outSamples, const bool& /*mute*/,
                                   const bool& flush)
{
    return process(Int32, reinterpret_cast<int*>(in), inSamples, reinterpret_cast<int*>(out),
                   outSamples, flush);
}

int GStreamerResampler::processFloat(float* in, int inSamples, float* out, unsigned int& outSamples,
                                     const bool& /*mute*/, const bool& flush)
{
    return process(Float32, in, inSamples, out, outSamples, flush);
}

template int GStreamerResampler::resample(short*, unsigned int, short*, unsigned int, const bool&);
template int GStreamerResampler::resample(int*, unsigned int, int*, unsigned int, const bool&);
template int GStreamerResampler::resample(float*, unsigned int, float*, unsigned int, const bool&);

} // namespace audioUtils
