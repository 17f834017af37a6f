#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "ClickFilter.h"
#include "DevicePll.h"
#include "DeviceRequest.h"
#include "DopFilter.h"
#include "DriftLoop.h"
#include "EndSignals.h"
#include "Options.h"
#include "Playlist.h"
#include "Presenter.h"
#include "Producer.h"
#include "RateConverter.h"
#include "Recorder.h"
#include "Renderer.h"
#include "StandardStreams.h"
#include "Statistics.h"
#include "StreamObserver.h"
#include "Track.h"
#include "audioUtils/PcmQueue.h"

namespace keldaPlay {

/// What the streams that are played one after the other share.
struct Playing
{
    const Options& options;
    EndSignals& signals;
    Presenter& presenter;
    Statistics& statistics;

    /// Whether nobody wants to hear more: a signal has come, or the program that reads standard
    /// output has gone.
    [[nodiscard]] bool isToEnd() const { return signals.haveCome() || keldaFiles::hasReaderGone(); }
};

/// One stream on its way from the files to the device: the two threads between them, and what the
/// main thread does meanwhile.
class Session
{
public:
    /// Opens the device.
    ///
    /// Throws DeviceError when it can't play the stream, and std::runtime_error when what is to be
    /// written can't be.
    /// @param tracks that are one stream; they have to outlive the session
    /// @param seconds after which the stream ends, if it has not
    Session(const Playing& playing, std::span<const Track> tracks, bool loop,
            std::optional<double> seconds);

    /// Plays it to its end, or until a signal.
    ///
    /// Throws as the constructor when the device is gone for good, or something could not be
    /// written; and std::runtime_error when a track can't be read, after what came before has been
    /// played.
    void run();

    [[nodiscard]] const Playlist& playlist() const { return m_playlist; }

private:
    void openDevice();
    void refuseShortBuffer() const;
    void refuseShortQueue() const;
    void limitTo(double seconds);
    [[nodiscard]] bool converts() const;
    [[nodiscard]] bool canWait() const;
    [[nodiscard]] std::optional<std::chrono::duration<double>> waiting() const;
    [[nodiscard]] std::uint64_t drain();
    [[nodiscard]] RenderPath path();
    [[nodiscard]] std::string carried() const;
    [[nodiscard]] miscUtils::TimeValue pathDelay() const;
    void play();
    void countDiscarded(const Producer& producer, const BlockRenderer& rendered);
    void watch(const Renderer& renderer, Producer& producer);
    void closeDevice();
    void commitRecording();
    void writeReport() const;

    Playing m_playing;
    const Options& m_options;
    Playlist m_playlist;
    audioUtils::PcmAudioInfo m_stream; // as the files have it
    audioUtils::PcmAudioInfo m_info;   // as the device is to have it
    FrameLayout m_layout;              // as the device takes it
    FrameLayout m_queued;              // as it is queued
    DeviceRequest m_request;
    std::unique_ptr<audioUtils::OutputDevice> m_device;
    std::string m_granted;                    // of the device, for the report
    std::uint64_t m_notPlayed = 0;            // by the device, of what it held; frames
    std::optional<std::uint64_t> m_discarded; // by the queue, frames
    audioUtils::PcmQueue m_queue;
    std::optional<ClickFilter> m_clicks;
    std::optional<DopFilter> m_dop;       // for a stream of DSD
    std::optional<SoundCapture> m_before; // for the report
    std::optional<SoundCapture> m_after;
    std::optional<RateConverter> m_converter;
    DriftLoop m_drift{m_options.drift};
    std::optional<DevicePll> m_pll;
    std::optional<Recorder> m_recorder;
    std::optional<StreamObserver> m_observer; // once the device is open
};

} // namespace keldaPlay
