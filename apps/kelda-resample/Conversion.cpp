#include "Conversion.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>
#include <numbers>
#include <optional>
#include <stdexcept>
#include <vector>

#include <unistd.h>

#include "AudioFile.h"
#include "Errors.h"
#include "FilesInUse.h"
#include "OutputFormat.h"
#include "SoundOutput.h"
#include "audioUtils/resample/GStreamerResampler.h"
#include "audioUtils/resample/HighQualityResamplerShort.h"

namespace keldaResample {

using audioUtils::GStreamerResampler;
using audioUtils::HighQualityResampler;
using audioUtils::HighQualityResamplerShort;
using keldaPlay::FileHandle;
using keldaPlay::ResamplerChoice;

namespace {

FileHandle openInput(const std::string& path, SF_INFO& info)
{
    FileHandle file(sf_open(path.c_str(), SFM_READ, &info));
    if (!file) {
        throw std::runtime_error(path + ": " + sf_strerror(nullptr));
    }
    return file;
}

class ProgressBar
{
public:
    void show(double part)
    {
        const int percent = static_cast<int>(std::clamp(part, 0.0, 1.0) * 100);
        if (m_terminal && percent != m_shown) {
            const auto full = static_cast<std::size_t>(percent) / 2;
            std::printf("\r[%s%s] %3d %%", std::string(full, '#').c_str(),
                        std::string(50 - full, ' ').c_str(), percent);
            std::fflush(stdout);
            m_shown = percent;
        }
    }

    void end() const
    {
        if (m_terminal) {
            std::printf("\n");
        }
    }

private:
    bool m_terminal = isatty(STDOUT_FILENO) != 0;
    int m_shown = -1;
};

/// What converts a block, and what makes up for its headroom: a file is to keep its level.
class Engine
{
public:
    Engine(std::size_t blockFrames, double headroomInDb)
        : m_blockFrames(blockFrames), m_makeUp(static_cast<float>(std::pow(10, headroomInDb / 20)))
    {
    }
    virtual ~Engine() = default;
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    /// How many frames it had best be given at a time.
    [[nodiscard]] std::size_t blockFrames() const { return m_blockFrames; }
    [[nodiscard]] float makeUp() const { return m_makeUp; }

    /// @return the ratio that it takes for the next block, as near as it can
    virtual double setRatio(double ratio) = 0;

    /// As HighQualityResampler::processFloat().
    virtual int process(float* in, int count, float* out, unsigned int& written, bool flush) = 0;

private:
    std::size_t m_blockFrames;
    float m_makeUp;
};

class OwnEngine : public Engine
{
public:
    OwnEngine(int channels, HighQualityResampler::FilterQuality quality)
        : Engine(256, 1), m_resampler(channels, quality)
    {
    }

    double setRatio(double ratio) override
    {
        const auto nearest = static_cast<float>(ratio);
        m_resampler.setSamplingRate(nearest, 1);
        return nearest;
    }

    int process(float* in, int count, float* out, unsigned int& written, bool flush) override
    {
        return m_resampler.processFloat(in, count, out, written, false, flush);
    }

private:
    HighQualityResampler m_resampler;
};

/// In 16 bits.
class ShortEngine : public Engine
{
public:
    ShortEngine(int channels, HighQualityResampler::FilterQuality quality)
        : Engine(256, 0), m_resampler(channels, quality)
    {
    }

    double setRatio(double ratio) override
    {
        const auto nearest = static_cast<float>(ratio);
        m_resampler.setSamplingRate(nearest, 1);
        return nearest;
    }

    int process(float* in, int count, float* out, unsigned int& written, bool flush) override
    {
        m_in.resize(static_cast<std::size_t>(count));
        m_out.resize(written);
        std::transform(in, in + count, m_in.begin(), toShort);
        const int taken = m_resampler.processShort(
            reinterpret_cast<unsigned short*>(m_in.data()), count,
            reinterpret_cast<unsigned short*>(m_out.data()), written, false, flush);
        std::transform(m_out.begin(), m_out.begin() + written, out,
                       [](short sample) { return static_cast<float>(sample) / 32768; });
        return taken;
    }

private:
    static short toShort(float sample)
    {
        return static_cast<short>(std::clamp(std::lround(sample * 32768), -32768L, 32767L));
    }

    HighQualityResamplerShort m_resampler;
    std::vector<short> m_in;
    std::vector<short> m_out;
};

class GStreamerEngine : public Engine
{
public:
    GStreamerEngine(const SF_INFO& info, unsigned int outRate, int quality)
        : Engine(4096, info.samplerate == static_cast<int>(outRate) ? 0 : 0.5), // a copy has none
          m_ratio(static_cast<double>(info.samplerate) / outRate),
          m_resampler(static_cast<unsigned int>(info.channels),
                      static_cast<unsigned int>(info.samplerate), outRate,
                      GStreamerResampler::Float32, quality)
    {
    }

    double setRatio(double /*ratio*/) override { return m_ratio; }

    int process(float* in, int count, float* out, unsigned int& written, bool flush) override
    {
        return m_resampler.processFloat(in, count, out, written, false, flush);
    }

private:
    double m_ratio;
    GStreamerResampler m_resampler;
};

std::unique_ptr<Engine> createEngine(const ConversionOptions& options, const SF_INFO& info)
{
    if (options.resampler.kind == ResamplerChoice::Kind::GStreamer) {
        return std::make_unique<GStreamerEngine>(info, options.rate,
                                                 options.resampler.gstreamerQuality());
    }
    if (options.resampler.kind == ResamplerChoice::Kind::Short) {
        return std::make_unique<ShortEngine>(info.channels, options.resampler.quality);
    }
    return std::make_unique<OwnEngine>(info.channels, options.resampler.quality);
}

class Conversion
{
public:
    explicit Conversion(const ConversionOptions& options)
        : m_options(options),
          m_in(openInput(options.input, m_info)),
          m_channels(static_cast<std::size_t>(m_info.channels))
    {
        checkRates();
        SF_INFO out{};
        out.samplerate = static_cast<int>(options.rate);
        out.channels = m_info.channels;
        out.format = outputFormat(options.output, m_info);
        if (isLengthKnown()) {
            m_outFramesLeft = outFramesFor(m_info.frames);
        }
        m_engine = createEngine(options, m_info);
        m_out.emplace(options.output, out);
        sf_command(m_out->get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
    }

    void run()
    {
        const std::size_t blockFrames = m_engine->blockFrames();
        std::vector<float> block(blockFrames * m_channels);
        sf_count_t done = 0;
        for (;;) {
            const sf_count_t frames =
                sf_readf_float(m_in.get(), block.data(), static_cast<sf_count_t>(blockFrames));
            if (frames <= 0) {
                break;
            }
            setRatioAt(done);
            push(block.data(), static_cast<std::size_t>(frames) * m_channels, false);
            done += frames;
            m_progress.show(static_cast<double>(done) / static_cast<double>(m_info.frames));
        }
        checkRead(done);
        m_outFramesLeft = std::max(outFramesFor(done) - m_outFrames, sf_count_t{0});
        push(nullptr, 0, true);
        // A swinging ratio ends where it ends: the last frames make it even.
        std::fill(m_staging.begin(), m_staging.end(), 0.0F);
        while (m_outFramesLeft > 0) {
            write(std::min<std::size_t>(m_engine->blockFrames(),
                                        static_cast<std::size_t>(m_outFramesLeft)));
        }
        m_progress.end();
        m_out->commit();
    }

private:
    void checkRates() const
    {
        const double ratio = static_cast<double>(m_info.samplerate) / m_options.rate;
        const double factor = std::max(ratio, 1 / ratio) * (1 + m_options.sweepPpm * 1e-6);
        const bool isShort = m_options.resampler.kind == ResamplerChoice::Kind::Short;
        if (factor > 8 || (factor == 8 && isShort)) {
            throw std::runtime_error(
                m_options.input + ": " + std::to_string(m_info.samplerate) +
                " Hz can't be converted to " + std::to_string(m_options.rate) + " Hz: that is " +
                (factor > 8 ? "more than a factor of 8" : "a factor of 8, too much for short"));
        }
    }

    [[nodiscard]] bool isLengthKnown() const
    {
        return m_info.frames != std::numeric_limits<sf_count_t>::max();
    }

    void checkRead(sf_count_t frames) const
    {
        if (sf_error(m_in.get()) != SF_ERR_NO_ERROR) {
            throw std::runtime_error(m_options.input + ": " + sf_strerror(m_in.get()));
        }
        if (isLengthKnown() && frames < m_info.frames) {
            throw std::runtime_error(m_options.input + ": ends after " + std::to_string(frames) +
                                     " of " + std::to_string(m_info.frames) + " frames");
        }
    }

    /// As many as lie within so much of the input, whose end is one frame behind its last.
    [[nodiscard]] sf_count_t outFramesFor(sf_count_t frames) const
    {
        return (frames * sf_count_t{m_options.rate} + m_info.samplerate - 1) / m_info.samplerate;
    }

    // The resampler's ratio is a float, and off by some 1e-8: a frame in half an hour. So each
    // block makes up for what the blocks before were off.
    void setRatioAt(sf_count_t frame)
    {
        const double seconds = static_cast<double>(frame) / m_info.samplerate;
        const double swing =
            m_options.sweepPpm * 1e-6 * std::sin(2 * std::numbers::pi * seconds / 10);
        m_wantedRatio = static_cast<double>(m_info.samplerate) / m_options.rate * (1 + swing);
        const double error = m_inputError / static_cast<double>(m_engine->blockFrames());
        m_ratio = m_engine->setRatio(m_wantedRatio - error * m_wantedRatio);
    }

    void push(float* samples, std::size_t count, bool flush)
    {
        auto left = static_cast<int>(count);
        const auto room = static_cast<unsigned int>(m_staging.size() / m_channels * m_channels);
        unsigned int written = 0;
        do {
            written = room;
            const int taken = m_engine->process(samples, left, m_staging.data(), written, flush);
            const std::size_t frames = written / m_channels;
            m_inputError += (m_ratio - m_wantedRatio) * static_cast<double>(frames);
            samples += samples == nullptr ? 0 : taken;
            left -= taken;
            write(std::min<std::size_t>(frames, static_cast<std::size_t>(m_outFramesLeft)));
        } while (left > 0 || written == room || (flush && written > 0));
    }

    void write(std::size_t frames)
    {
        for (std::size_t i = 0; i < frames * m_channels; ++i) {
            m_staging[i] *= m_engine->makeUp();
        }
        const auto count = static_cast<sf_count_t>(frames);
        if (sf_writef_float(m_out->get(), m_staging.data(), count) != count) {
            m_out->check();
            throw std::runtime_error(m_options.output + ": " + sf_strerror(m_out->get()));
        }
        m_outFrames += count;
        m_outFramesLeft -= count;
    }

    const ConversionOptions& m_options;
    SF_INFO m_info{};
    FileHandle m_in;
    std::size_t m_channels;
    std::unique_ptr<Engine> m_engine;
    std::optional<keldaPlay::SoundOutput> m_out;
    std::vector<float> m_staging = std::vector<float>(65536);
    sf_count_t m_outFrames = 0;
    sf_count_t m_outFramesLeft = std::numeric_limits<sf_count_t>::max(); // until its end is known
    double m_wantedRatio = 1;
    double m_ratio = 1;
    double m_inputError = 0; // frames
    ProgressBar m_progress;
};

} // namespace

void convert(const ConversionOptions& options)
{
    if (options.input == "-" || options.output == "-") {
        throw keldaPlay::UsageError("-: sound is read from a file and written to a file, not from "
                                    "standard input and to standard output");
    }
    keldaFiles::FilesInUse files;
    files.addInput(options.input);
    files.addOutput("OUT", options.output);
    Conversion(options).run();
}

} // namespace keldaResample
