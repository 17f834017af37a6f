#include "Session.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "DopNegotiation.h"
#include "Errors.h"
#include "Negotiation.h"
#include "Opening.h"
#include "Report.h"
#include "ReportFolder.h"
#include "Timeline.h"

namespace keldaPlay {

using miscUtils::TimeValue;

namespace {

constexpr TimeValue nanosecondsPerMillisecond = 1'000'000;
constexpr std::int64_t longestDelay = 10'000'000'000; // ns: what tells more is wrong

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

std::string textOf(const Options& options)
{
    std::ostringstream text;
    const DriftOptions& drift = options.drift;
    switch (drift.correction) {
    case Correction::None:
        return "none";
    case Correction::Resample:
        text << "resample";
        break;
    case Correction::Device:
        text << "device, " << options.pll;
        break;
    }
    text << "; Kp " << drift.Kp << ", Ki " << drift.Ki << ", Kd " << drift.Kd << ", at most "
         << drift.limitPpm << " ppm";
    return text.str();
}

} // namespace

Session::Session(const Playing& playing, std::span<const Track> tracks, bool loop,
                 std::optional<double> seconds)
    : m_playing(playing),
      m_options(playing.options),
      m_playlist(tracks, loop),
      m_stream(describe(tracks)),
      m_info(negotiate(m_options, m_playlist)),
      m_layout{*layoutOf(m_info.getPcmFormat()), static_cast<std::size_t>(m_info.getNumChannels())},
      m_queued{converts() ? *layoutOf(RateConverter::inputFormat(m_options.resampler))
                          : m_layout.sample,
               m_layout.numChannels},
      m_request(requestFor(m_options, m_info)),
      m_device(createDevice(m_options.device))
{
    openDevice();
    m_granted = textOf(m_request, *m_device);
    configureQueue(m_queue, m_options, m_playlist, m_queued);
    if (converts()) {
        m_converter.emplace(m_options.resampler, m_playlist.rate(), m_device->sampleRate(),
                            m_layout);
    }
    if (m_options.clicks.enabled && !m_dop) {
        m_clicks.emplace(m_options.clicks, m_queued, m_playlist.rate());
    }
    if (seconds) {
        limitTo(*seconds);
    }
    if (!m_options.reportFolder.empty() && !m_dop) {
        m_before.emplace(m_queued, m_playlist.rate());
        m_after.emplace(m_queued, m_playlist.rate());
    }
    if (!m_options.pll.empty()) {
        m_pll.emplace(m_options.pll);
    }
    if (!m_options.recordPath.empty()) {
        const Opening opening(m_options.recordPath);
        m_recorder.emplace(m_options.recordPath, m_layout.sample, m_device->sampleRate(),
                           m_device->numChannels());
    }
    m_observer.emplace(m_options, m_playing.presenter, m_playing.statistics);
    if (!m_options.reportFolder.empty()) {
        keldaReport::prepare(m_options.reportFolder);
    }
}

void Session::openDevice()
{
    if (m_playlist.isDsd()) {
        m_request.rateResample = false;
        m_dop.emplace(m_layout);
    }
    if (const std::string obstacle = open(*m_device, m_request); !obstacle.empty()) {
        throw DeviceError(obstacle);
    }
    refuseShortBuffer();
    refuseShortQueue();
}

// A period that is written while another one is played: with less the device runs dry all the time,
// or never starts.
void Session::refuseShortBuffer() const
{
    if (m_device->bufferSize() < 2 * m_device->periodSize()) {
        throw UsageError("a buffer of " + std::to_string(m_device->bufferSize()) +
                         " frames is less than two periods of the device, of " +
                         std::to_string(m_device->periodSize()) + " frames each");
    }
}

// A block that never fits into the queue is never whole.
void Session::refuseShortQueue() const
{
    const auto periodMs =
        static_cast<double>(m_device->periodSize()) * 1000 / m_device->sampleRate();
    if (m_options.queueMs < periodMs) {
        throw UsageError("--queue-ms " + std::to_string(m_options.queueMs) +
                         " is less than a period of the device, " +
                         std::to_string(static_cast<unsigned int>(std::ceil(periodMs))) + " ms");
    }
}

void Session::limitTo(double seconds)
{
    m_playlist.limit(static_cast<std::uint64_t>(std::llround(seconds * m_playlist.rate())));
}

bool Session::converts() const
{
    return m_info.getSampleRate() != m_stream.getSampleRate() ||
           m_options.drift.correction == Correction::Resample;
}

// What comes from a live source has a deadline; a file has none.
bool Session::canWait() const
{
    return std::ranges::none_of(m_playlist.tracks(), &Track::isLive);
}

std::optional<std::chrono::duration<double>> Session::waiting() const
{
    constexpr std::chrono::duration<double> usual = std::chrono::minutes(1);
    if (m_options.waitSeconds) {
        return std::chrono::duration<double>(*m_options.waitSeconds);
    }
    return canWait() ? std::optional(usual) : std::nullopt;
}

RenderPath Session::path()
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
    path.canWait = canWait();
    path.drift = m_options.drift.correction != Correction::None ? &m_drift : nullptr;
    return path;
}

std::string Session::carried() const
{
    return m_dop ? nameOfDop(*openSource(m_playlist.tracks().front().path)) : "";
}

// From the queue until it is heard when the device is full, ns.
TimeValue Session::pathDelay() const
{
    const TimeValue device = m_device->bufferSize() * 1'000'000'000 / m_device->sampleRate();
    const TimeValue clicks =
        m_clicks ? m_clicks->delayFrames() * 1'000'000'000 / m_playlist.rate() : 0;
    const auto converter = static_cast<TimeValue>(m_converter ? m_converter->latencyNs() : 0);
    return device + clicks + converter;
}

void Session::run()
{
    m_playing.statistics.beginStream(m_playlist.rate());
    m_playing.presenter.streamStarts({m_stream, m_request, *m_device, carried()});
    std::exception_ptr problem; // the first one is told
    const auto attempt = [&problem](const auto& step) {
        try {
            step();
        } catch (...) {
            problem = problem ? problem : std::current_exception();
        }
    };
    attempt([this] { play(); });
    attempt([this] { closeDevice(); });
    m_observer->finish(m_playing.isToEnd());
    m_playing.statistics.endStream(m_notPlayed, m_discarded);
    // However playing has ended, these tell what was heard until then.
    attempt([this] { m_observer->commitTrace(); });
    attempt([this] { commitRecording(); });
    attempt([this] { writeReport(); });
    if (problem) {
        std::rethrow_exception(problem);
    }
}

void Session::closeDevice()
{
    const bool isGone = !m_device->isOpened();
    m_notPlayed = isGone ? 0 : drain();
    m_device->close();
    if (isGone) {
        throw DeviceError("device " + m_options.device + " has not come back");
    }
}

// @return the frames that the device held, and did not play: it took less than half the time
std::uint64_t Session::drain()
{
    if (m_options.device == simulatedDevice) {
        m_device->drain(); // at once
        return 0;
    }
    const std::int64_t told = m_device->getCompensatedRenderingDelay();
    const std::int64_t held = 0 < told && told < longestDelay ? told : 0;
    const auto before = std::chrono::steady_clock::now();
    m_device->drain();
    const std::chrono::nanoseconds taken = std::chrono::steady_clock::now() - before;
    if (taken.count() >= held / 2) {
        return 0;
    }
    return static_cast<std::uint64_t>(held - taken.count()) * m_playlist.rate() / 1'000'000'000;
}

// Throws what the producer's thread has thrown.
void Session::play()
{
    Producer producer(m_playlist, m_queued, m_queue, m_observer->schedule(), m_options);
    Renderer renderer(
        m_queue, *m_device, m_queued, m_playlist.rate(), path(),
        [this] { return open(*m_device, m_request).empty(); }, waiting(), m_observer->journal());
    std::exception_ptr unreadable;

    const TimeValue delay = pathDelay(); // now, before the converter belongs to the renderer
    std::thread producerThread([&] {
        try {
            producer.run(Timeline(delay, m_playlist.rate(), m_options.sourcePpm));
        } catch (...) {
            unreadable = std::current_exception();
            m_queue.drain(); // what was decoded is played
        }
        renderer.stop();
    });
    std::thread rendererThread([&] { renderer.run(); });
    watch(renderer, producer);
    producer.stop(); // the renderer may have ended first
    producerThread.join();
    rendererThread.join();
    countDiscarded(producer, renderer.rendered());
    if (unreadable) {
        std::rethrow_exception(unreadable);
    }
}

// What went into the queue, and neither came out nor was skipped. What it held when playing
// was ended is what nobody wanted to hear any more.
void Session::countDiscarded(const Producer& producer, const BlockRenderer& rendered)
{
    const audioUtils::PcmQueueCounters& counters = rendered.counters();
    const std::uint64_t in = producer.framesQueued() + counters.insertedFrames;
    const std::uint64_t out = rendered.framesRead() + counters.skippedFrames;
    if (in >= out && !m_playing.isToEnd() && m_device->isOpened()) {
        m_discarded = in - out;
    }
}

void Session::watch(const Renderer& renderer, Producer& producer)
{
    while (!renderer.hasEnded()) {
        m_playing.signals.waitFor(50 * nanosecondsPerMillisecond);
        if (m_playing.isToEnd()) {
            producer.stop();
        }
        m_observer->update();
    }
}

void Session::commitRecording()
{
    if (m_recorder) {
        m_recorder->commit();
    }
}

void Session::writeReport() const
{
    if (m_options.reportFolder.empty()) {
        return;
    }
    const Statistics& sync = m_playing.statistics;
    std::vector<keldaReport::Fact> facts = keldaReport::factsOfProcess("kelda-play " KELDA_VERSION);
    facts.push_back({"device", m_granted});
    facts.push_back({"correction", textOf(m_options)});
    keldaReport::write(m_options.reportFolder,
                       {m_options.device + ": " + m_options.files.front(), sync,
                        keldaReport::linesOf(sync), facts, m_before ? &m_before->audio() : nullptr,
                        m_after ? &m_after->audio() : nullptr});
    m_playing.presenter.reportIsWritten(m_options.reportFolder + "/index.html");
}

} // namespace keldaPlay
