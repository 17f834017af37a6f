#pragma once

#include <memory>
#include <string>

#include "DeviceRequest.h"
#include "Errors.h"
#include "Journal.h"
#include "Statistics.h"
#include "Track.h"

namespace keldaPlay {

/// The device has been opened for a stream.
struct StreamStart
{
    audioUtils::PcmAudioInfo source;        ///< as the files have it
    const DeviceRequest& request;           ///< as the device is to have it
    const audioUtils::OutputDevice& device; ///< as it has it
    std::string carried;                    ///< what the samples stand for, if not for themselves
};

/// "fake: 48000 Hz, 2 channels, S16LE, period 480, ...": a device as it was granted.
[[nodiscard]] std::string textOf(const DeviceRequest& request,
                                 const audioUtils::OutputDevice& device);

/// How playing goes.
struct Progress
{
    const Statistics& statistics;
    const BlockRecord& last;
    const Track* track = nullptr; ///< whose frames are due; none before the first
    double trackPosition = 0;     ///< s
};

/// Tells the user on standard output what is played, and how it goes. Positions are seconds of
/// audio that have been played.
class Presenter
{
public:
    virtual ~Presenter() = default;

    virtual void streamStarts(const StreamStart& start) = 0;
    /// Its first frame is due.
    virtual void trackBegins(const Track& track, double position) = 0;
    /// May be called more often than the user is told.
    virtual void goesOn(const Progress& progress) = 0;
    virtual void ranDry(double position) = 0;
    virtual void deviceIsLost(double position) = 0;
    virtual void deviceIsBack(double position, double secondsAway) = 0;
    /// @param page the path of the page to be looked at
    virtual void reportIsWritten(const std::string& page) = 0;
    /// @param error in one line; empty where there was none
    virtual void ends(const Statistics& statistics, ExitStatus status,
                      const std::string& error) = 0;
};

/// The one that the user asked for.
[[nodiscard]] std::unique_ptr<Presenter> createPresenter(const Options& options);

} // namespace keldaPlay
