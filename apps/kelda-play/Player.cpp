#include "Player.h"

#include <algorithm>
#include <clocale>
#include <cmath>
#include <exception>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <thread>
#include <vector>

#include <unistd.h>

#include "Color.h"
#include "DevicePll.h"
#include "DeviceRequest.h"
#include "DopNegotiation.h"
#include "EndSignals.h"
#include "Errors.h"
#include "Journal.h"
#include "Logging.h"
#include "Negotiation.h"
#include "Playlist.h"
#include "Presenter.h"
#include "Producer.h"
#include "RateConverter.h"
#include "Recorder.h"
#include "Renderer.h"
#include "Statistics.h"
#include "SyncRecord.h"
#include "Timeline.h"
#include "Trace.h"
#include "Track.h"
#include "TrackSchedule.h"
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

/// What the streams that are played one after the other share.
struct Playing
{
    const Options& options;
    EndSignals& signals;
    Presenter& presenter;
    Statistics& statistics;
};

/// The two threads between the files and the device, and what the main thread does meanwhile.
class Session
{
public:
    /// @param tracks that are one stream
    Session(const Playing& playing, std::span<const Track> tracks, bool loop,
            std::optional<double> seconds)
        : m_playing(playing),
          m_options(playing.options),
          m_playlist(tracks, loop),
          m_stream(describe(tracks)),
          m_info(negotiate(m_options, m_playlist)),
          m_layout{*layoutOf(m_info.getPcmFormat()),
                   static_cast<std::size_t>(m_info.getNumChannels())},
          m_queued{converts() ? *layoutOf(RateConverter::inputFormat(m_options.resampler))
                              : m_layout.sample,
                   m_layout.numChannels},
          m_request(requestFor(m_options, m_info)),
          m_device(createDevice(m_options.device))
    {
        const Options& options = m_options;
        if (m_playlist.isDsd()) {
            m_request.rateResample = false;
            m_dop.emplace(m_layout);
        }
        if (const std::string obstacle = open(*m_device, m_request); !obstacle.empty()) {
            throw DeviceError(obstacle);
        }
        configureQueue(m_queue, options, m_playlist, m_queued);
        if (converts()) {
            m_converter.emplace(options.resampler, m_playlist.rate(), m_device->sampleRate(),
                                m_layout);
        }
        if (options.clicks.enabled && !m_dop) {
            m_clicks.emplace(options.clicks, m_queued, m_playlist.rate());
        }
        if (seconds) {
            m_playlist.limit(
                static_cast<std::uint64_t>(std::llround(*seconds * m_playlist.rate())));
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

    void run()
    {
        m_playing.statistics.beginStream(m_playlist.rate());
        m_playing.presenter.streamStarts({m_stream, m_request, *m_device, carried()});
        Producer producer(m_playlist, m_queued, m_queue, m_schedule, m_options);
        Renderer renderer(
            m_queue, *m_device, m_queued, m_playlist.rate(), path(),
            [this] { return open(*m_device, m_request).empty(); }, m_journal);
        std::exception_ptr producerError;

        std::thread producerThread([&] {
            try {
                producer.run(Timeline(pathDelay(), m_playlist.rate(), m_options.sourcePpm));
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
        evaluate();
        tellTracks(m_playing.signals.haveCome() ? miscUtils::getMonotonicRawSysclockTime()
                                                : miscUtils::NoTimeValue);
        if (producerError) {
            std::rethrow_exception(producerError);
        }
        if (!m_options.reportFolder.empty()) {
            m_sync->write(m_options.reportFolder, m_options.device + ": " + m_options.files.front(),
                          m_before ? &m_before->audio() : nullptr,
                          m_after ? &m_after->audio() : nullptr);
        }
        checkResult();
    }

    [[nodiscard]] const Playlist& playlist() const { return m_playlist; }

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

    [[nodiscard]] std::string carried() const
    {
        return m_dop ? nameOfDop(*openSource(m_playlist.tracks().front().path)) : "";
    }

    /// From the queue until it is heard when the device is full, ns.
    [[nodiscard]] TimeValue pathDelay() const
    {
        const TimeValue device = m_device->bufferSize() * 1'000'000'000 / m_device->sampleRate();
        const TimeValue clicks =
            m_clicks ? m_clicks->delayFrames() * 1'000'000'000 / m_playlist.rate() : 0;
        const auto converter = static_cast<TimeValue>(m_converter ? m_converter->latencyNs() : 0);
        return device + clicks + converter;
    }

    void watch(const Renderer& renderer, Producer& producer)
    {
        while (!renderer.hasEnded()) {
            if (m_playing.signals.waitFor(50 * nanosecondsPerMillisecond)) {
                producer.stop();
            }
            evaluate();
        }
    }

    void evaluate()
    {
        for (const BlockRecord& record : m_journal.take()) {
            m_playing.statistics.add(record);
            tellIncidents(record);
            if (m_sync) {
                m_sync->add(record);
            }
            if (m_trace) {
                m_trace->write(record);
            }
            m_last = record;
            m_hasPlayed = m_hasPlayed || record.isHeard();
        }
        const TimeValue now = miscUtils::getMonotonicRawSysclockTime();
        tellTracks(now);
        if (m_hasPlayed) {
            const double since =
                m_current.track == nullptr ? 0 : static_cast<double>(now - m_current.pts) * 1e-9;
            m_playing.presenter.goesOn(
                {m_playing.statistics, m_last, m_current.track,
                 m_current.track == nullptr
                     ? 0
                     : std::min(since, m_current.track->seconds().value_or(since))});
        }
    }

    void tellTracks(TimeValue now)
    {
        while (const auto due = m_schedule.takeDue(now)) {
            m_current = *due;
            m_playing.presenter.trackBegins(*due->track, position());
        }
    }

    void tellIncidents(const BlockRecord& record)
    {
        Presenter& presenter = m_playing.presenter;
        const std::int64_t time = static_cast<std::int64_t>(record.dueTime) - record.deviceDelay;
        if (record.result == OutputDevice::Underrun) {
            presenter.ranDry(position());
        }
        if (!record.isHeard() && !m_lostSince) {
            m_lostSince = time;
            presenter.deviceIsLost(position());
        } else if (record.isHeard() && m_lostSince) {
            presenter.deviceIsBack(position(), static_cast<double>(time - *m_lostSince) * 1e-9);
            m_lostSince.reset();
        }
    }

    [[nodiscard]] double position() const { return m_playing.statistics.dataSeconds(); }

    void checkResult()
    {
        if (m_isGone) {
            throw DeviceError("device " + m_options.device + " has not come back");
        }
        if (m_recorder && !m_recorder->isComplete()) {
            throw std::runtime_error(m_options.recordPath + ": not all could be written");
        }
        if (m_trace && !m_trace->isComplete()) {
            throw std::runtime_error(m_options.tracePath + ": not all could be written");
        }
    }

    Playing m_playing;
    const Options& m_options;
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
    std::optional<SyncRecord> m_sync; // for the report
    std::optional<DevicePll> m_pll;
    TrackSchedule m_schedule;
    TrackSchedule::Entry m_current;
    BlockRecord m_last;
    bool m_hasPlayed = false;
    std::optional<std::int64_t> m_lostSince; // ns
};

// What is one file of one stream, or a place in it, is not to be for the first of several by
// chance.
void refuseForSeveralStreams(const Options& options, const Track& first, const Track& other)
{
    const char* option = !options.recordPath.empty()     ? "--record"
                         : !options.tracePath.empty()    ? "--trace"
                         : !options.reportFolder.empty() ? "--report"
                         : !options.gaps.empty()         ? "--gap"
                                                         : nullptr;
    if (option != nullptr) {
        const auto text = [](const audioUtils::PcmAudioInfo& info) {
            return std::to_string(info.getNumChannels()) + " channels at " +
                   std::to_string(info.getSampleRate()) + " Hz";
        };
        throw UsageError(std::string(option) + " takes one stream, but " + other.path + " has " +
                         text(other.info) + " and " + first.path + " " + text(first.info));
    }
}

/// Stream after stream, for each the device is opened anew.
void playAll(const Playing& playing, std::span<const Track> tracks)
{
    const Options& options = playing.options;
    const std::size_t firstRun = lengthOfRun(tracks);
    const bool isOneStream = firstRun == tracks.size();
    if (!isOneStream) {
        refuseForSeveralStreams(options, tracks.front(), tracks[firstRun]);
    }
    std::optional<double> secondsLeft = options.durationSeconds;
    double secondsOfRound = 0;
    do {
        secondsOfRound = 0;
        for (std::span<const Track> rest = tracks; !rest.empty();) {
            const std::span<const Track> run = rest.first(lengthOfRun(rest));
            rest = rest.subspan(run.size());
            Session session(playing, run, options.loop && isOneStream, secondsLeft);
            session.run();
            if (playing.signals.haveCome() || session.playlist().hasReachedLimit()) {
                return;
            }
            secondsOfRound += session.playlist().secondsRead();
            if (secondsLeft) {
                *secondsLeft -= session.playlist().secondsRead();
            }
        }
    } while (options.loop && !isOneStream && secondsOfRound > 0);
}

} // namespace

int play(const Options& options)
{
    EndSignals signals; // first, for they are to be blocked in all threads, the logger's too
    std::setlocale(LC_CTYPE, ""); // which characters the terminal knows
    const bool isLogColored = usesColor(options.color, STDERR_FILENO);
    if (options.describes()) {
        const Logging logging(options.logLevel, isLogColored);
        printDescriptions(options);
        return Ended;
    }
    const std::unique_ptr<Presenter> presenter = createPresenter(options);
    Statistics statistics;
    ExitStatus status = Ended;
    std::string problem;
    try {
        const Logging logging(options.logLevel, isLogColored); // ends before the last line is told
        const std::vector<Track> tracks =
            findTracks(options, [&signals] { return !signals.haveCome(); });
        if (!signals.haveCome()) {
            playAll({options, signals, *presenter, statistics}, tracks);
        }
    } catch (const std::exception& error) {
        status = exitStatusOf(error);
        problem = error.what();
    }
    presenter->ends(statistics, status, problem);
    return status;
}

} // namespace keldaPlay
