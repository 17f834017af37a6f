#include "Player.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "DevicePll.h"
#include "DeviceRequest.h"
#include "DopNegotiation.h"
#include "EndSignals.h"
#include "Journal.h"
#include "Logging.h"
#include "Negotiation.h"
#include "Playlist.h"
#include "Producer.h"
#include "RateConverter.h"
#include "Recorder.h"
#include "Renderer.h"
#include "Source.h"
#include "Statistics.h"
#include "StatusLine.h"
#include "SyncRecord.h"
#include "Trace.h"
#include "audioUtils/PcmQueue.h"

namespace keldaPlay {

using audioUtils::OutputDevice;
using miscUtils::TimeValue;

namespace {

constexpr TimeValue nanosecondsPerMillisecond = 1'000'000;

void configureQueue(audioUtils::PcmQueue& queue, const Options& options, const Playlist& playlist,
                    const FrameLayout& layout)
{
    // A file of DSD is to be heard whole: clocks that differ may take it this far.
    const double jumpMs = options.jumpThresholdMs.value_or(playlist.isDsd() ? 1000 : 20);

    // Two timestamps may lie twice the jitter apart, and the filter is off by a part of it: less
    // than three times the jitter is no jump.
    const auto jitter = static_cast<TimeValue>(std::llround(options.jitterMs * 1e6));
    const auto jump = static_cast<TimeValue>(std::llround(jumpMs * 1e6));
    const TimeValue jumpThreshold = std::max(jump, 3 * jitter);
    const TimeValue filterMaxError = std::max(10 * nanosecondsPerMillisecond, 3 * jitter);
    queue.configure(true, options.queueMs, playlist.rate(),
                    static_cast<unsigned int>(layout.numChannels),
                    static_cast<unsigned int>(layout.sample.bytes), "kelda-play", true,
                    jumpThreshold, filterMaxError);
}

// The first frame is due when the device is full and the producer has had time for some packets.
StreamClock startClock(const OutputDevice& device, unsigned int sampleRate, double ppm)
{
    constexpr TimeValue lead = 100 * nanosecondsPerMillisecond;
    const TimeValue full = device.bufferSize() * 1'000'000'000 / device.sampleRate();
    return StreamClock(miscUtils::getMonotonicRawSysclockTime() + full + lead, sampleRate, ppm);
}

std::vector<std::unique_ptr<Source>> openAll(const std::vector<std::string>& paths)
{
    std::vector<std::unique_ptr<Source>> sources;
    for (const std::string& path : paths) {
        sources.push_back(openSource(path));
    }
    return sources;
}

/// The two threads between the files and the device, and what the main thread does meanwhile.
class Session
{
public:
    Session(const Options& options, const EndSignals& signals)
        : m_options(options),
          m_signals(signals),
          m_playlist(openAll(options.files), options.loop),
          m_stream(describe(m_playlist)),
          m_info(negotiate(options, m_playlist)),
          m_layout{*layoutOf(m_info.getPcmFormat()),
                   static_cast<std::size_t>(m_info.getNumChannels())},
          m_queued{converts() ? *layoutOf(RateConverter::inputFormat(options.resampler))
                              : m_layout.sample,
                   m_layout.numChannels},
          m_request(requestFor(options, m_info)),
          m_device(createDevice(options.device))
    {
        if (m_playlist.isDsd()) {
            m_request.rateResample = false;
            m_dop.emplace(m_layout);
        }
        if (const std::string obstacle = open(*m_device, m_request); !obstacle.empty()) {
            throw std::runtime_error(obstacle);
        }
        configureQueue(m_queue, options, m_playlist, m_queued);
        if (converts()) {
            m_converter.emplace(options.resampler, m_playlist.rate(), m_device->sampleRate(),
                                m_layout);
        }
        if (options.clicks.enabled && !m_dop) {
            m_clicks.emplace(options.clicks, m_queued, m_playlist.rate());
        }
        if (options.durationSeconds) {
            m_playlist.limit(static_cast<std::uint64_t>(
                std::llround(*options.durationSeconds * m_playlist.rate())));
        }
        if (!options.reportFolder.empty()) {
            m_sync.emplace();
        }
        if (m_sync && !m_dop) {
            m_before.emplace(m_queued, m_playlist.rate());
            m_after.emplace(m_queued, m_playlist.rate());
        }
        if (!options.pll.empty()) {
            m_pll.emplace(options.pll);
        }
        if (!options.recordPath.empty()) {
            m_recorder.emplace(options.recordPath, m_layout.sample, m_device->sampleRate(),
                               m_device->numChannels());
        }
        if (!options.tracePath.empty()) {
            m_trace.emplace(options.tracePath);
        }
    }

    [[nodiscard]] int run()
    {
        printStart();
        Producer producer(m_playlist, m_queued, m_queue, m_options);
        Renderer renderer(
            m_queue, *m_device, m_queued, m_playlist.rate(), path(),
            [this] { return open(*m_device, m_request).empty(); }, m_journal);
        std::exception_ptr producerError;

        std::thread producerThread([&] {
            try {
                producer.run(startClock(*m_device, m_playlist.rate(), m_options.sourcePpm));
            } catch (...) {
                producerError = std::current_exception();
                m_queue.drain(); // what was decoded is played
            }
            renderer.stop();
        });
        std::thread rendererThread([&] { renderer.run(); });
        watch(renderer, producer);
        producer.stop(); // the renderer may have ended first
        producerThread.join();
        rendererThread.join();

        m_isGone = !m_device->isOpened();
        m_device->drain();
        m_device->close();
        printEnd();
        if (producerError) {
            std::rethrow_exception(producerError);
        }
        if (!m_options.reportFolder.empty()) {
            m_sync->write(m_options.reportFolder, m_options.device + ": " + m_options.files.front(),
                          m_before ? &m_before->audio() : nullptr,
                          m_after ? &m_after->audio() : nullptr);
        }
        return checkedResult();
    }

private:
    [[nodiscard]] bool converts() const
    {
        return m_info.getSampleRate() != m_stream.getSampleRate() ||
               m_options.drift.correction == Correction::Resample;
    }

    [[nodiscard]] RenderPath path()
    {
        RenderPath path;
        path.before = m_before ? &*m_before : nullptr;
        path.after = m_after ? &*m_after : nullptr;
        path.clicks = m_clicks ? &*m_clicks : nullptr;
        path.dop = m_dop ? &*m_dop : nullptr;
        path.converter = m_converter ? &*m_converter : nullptr;
        path.recorder = m_recorder ? &*m_recorder : nullptr;
        if (m_options.drift.correction == Correction::Device) {
            path.setDeviceRate = [this](double ppm) { m_pll->set(ppm); };
        }
        path.drift = m_options.drift.correction != Correction::None ? &m_drift : nullptr;
        return path;
    }

    void printStart() const
    {
        std::printf("%s: %u Hz, %u channel%s, %s, period %lu, buffer %lu, start %lu frames\n",
                    m_options.device.c_str(), m_device->sampleRate(), m_device->numChannels(),
                    m_device->numChannels() == 1 ? "" : "s",
                    audioUtils::toString(m_info.getPcmFormat()), m_device->periodSize(),
                    m_device->bufferSize(), m_device->startThreshold());
        if (m_dop) {
            std::printf("carried       %s\n", nameOfDop(*m_playlist.sources().front()).c_str());
        } else if (const std::string text = changes(m_stream, m_info); !text.empty()) {
            std::printf("changed       %s\n", text.c_str());
        }
        if (const std::string text = differences(m_request, *m_device); !text.empty()) {
            std::printf("obtained      %s frames\n", text.c_str());
        }
        std::fflush(stdout);
    }

    void watch(const Renderer& renderer, Producer& producer)
    {
        while (!renderer.hasEnded()) {
            if (m_signals.waitFor(50 * nanosecondsPerMillisecond)) {
                producer.stop();
            }
            evaluate();
        }
    }

    void evaluate()
    {
        for (const BlockRecord& record : m_journal.take()) {
            m_statistics.add(record);
            if (m_sync) {
                m_sync->add(record);
            }
            if (m_trace) {
                m_trace->write(record);
            }
            m_last = record;
        }
        if (m_statistics.blocks() > 0) {
            m_status.show(m_statistics, m_last);
        }
    }

    void printEnd()
    {
        evaluate();
        m_status.end();
        std::printf("%s", m_statistics.summary(m_playlist.rate()).c_str());
        std::fflush(stdout);
    }

    [[nodiscard]] int checkedResult()
    {
        if (m_isGone) {
            throw std::runtime_error("device " + m_options.device + " has not come back");
        }
        if (m_recorder && !m_recorder->isComplete()) {
            throw std::runtime_error(m_options.recordPath + ": not all could be written");
        }
        if (m_trace && !m_trace->isComplete()) {
            throw std::runtime_error(m_options.tracePath + ": not all could be written");
        }
        return 0;
    }

    const Options& m_options;
    const EndSignals& m_signals;
    Playlist m_playlist;
    audioUtils::PcmAudioInfo m_stream; // as the files have it
    audioUtils::PcmAudioInfo m_info;   // as the device is to have it
    FrameLayout m_layout;              // as the device takes it
    FrameLayout m_queued;              // as it is queued
    DeviceRequest m_request;
    std::unique_ptr<OutputDevice> m_device;
    bool m_isGone = false;
    audioUtils::PcmQueue m_queue;
    std::optional<ClickFilter> m_clicks;
    std::optional<DopFilter> m_dop;       // for a stream of DSD
    std::optional<SoundCapture> m_before; // for the report
    std::optional<SoundCapture> m_after;
    std::optional<RateConverter> m_converter;
    DriftLoop m_drift{m_options.drift};
    std::optional<Recorder> m_recorder;
    std::optional<Trace> m_trace;
    Journal m_journal;
    Statistics m_statistics;
    std::optional<SyncRecord> m_sync; // for the report
    std::optional<DevicePll> m_pll;
    BlockRecord m_last;
    StatusLine m_status{m_playlist.rate()};
};

} // namespace

int play(const Options& options)
{
    const EndSignals signals; // first, for they are to be blocked in all threads, the logger's too
    const Logging logging(options.logLevel);
    if (options.describes()) {
        printDescriptions(options);
        return 0;
    }
    Session session(options, signals);
    return session.run();
}

} // namespace keldaPlay
