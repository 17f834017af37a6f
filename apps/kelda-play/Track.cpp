#include "Track.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include "Negotiation.h"
#include "Opening.h"
#include "RawSource.h"
#include "SoundFolder.h"

namespace keldaPlay {

namespace {

Track trackOf(const std::string& path, const Source& source)
{
    Track track;
    track.path = path;
    track.info = describe(source);
    track.numFrames = source.numFrames();
    track.isDsd = source.isDsd();
    return track;
}

Track trackOfInput(const RawFormat& raw)
{
    Track track = trackOf(standardInput, RawSource(raw, StopEvent()));
    track.raw = raw;
    return track;
}

// Of what is in a folder not all has to be sound.
void addFolder(std::vector<Track>& tracks, const std::string& folder,
               const std::function<bool()>& goesOn)
{
    static const log4cplus::Logger logger = log4cplus::Logger::getInstance("kelda-play");
    const std::size_t before = tracks.size();
    for (const std::string& path : filesIn(folder)) {
        if (!goesOn()) {
            return;
        }
        try {
            tracks.push_back(trackOf(path, *openSource(path)));
        } catch (const std::runtime_error& error) {
            if (hasSoundExtension(path)) {
                LOG4CPLUS_WARN(logger, "Passed over " << error.what());
            }
        }
    }
    if (tracks.size() == before) {
        throw std::runtime_error(folder + ": no sound files in it");
    }
}

} // namespace

std::optional<double> Track::seconds() const
{
    if (!numFrames) {
        return std::nullopt;
    }
    return static_cast<double>(*numFrames) / info.getSampleRate();
}

std::vector<Track> findTracks(const Options& options, const std::function<bool()>& goesOn)
{
    std::vector<Track> tracks;
    for (const std::string& path : options.files) {
        if (!goesOn()) {
            break;
        }
        const Opening opening(path);
        std::error_code unreadable; // which opening it tells better
        if (path == standardInput) {
            tracks.push_back(trackOfInput(*options.raw));
        } else if (std::filesystem::is_directory(path, unreadable)) {
            addFolder(tracks, path, goesOn);
        } else {
            tracks.push_back(trackOf(path, *openSource(path)));
        }
    }
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        tracks[i].index = i;
    }
    return tracks;
}

std::unique_ptr<Source> openTrack(const Track& track, const StopEvent& stop)
{
    if (track.raw) {
        return std::make_unique<RawSource>(*track.raw, stop);
    }
    std::unique_ptr<Source> source = openSource(track.path);
    if (describe(*source) != track.info) {
        throw std::runtime_error(track.path + ": has changed since playing began");
    }
    return source;
}

std::size_t lengthOfRun(std::span<const Track> tracks)
{
    const auto differs = [&first = tracks.front().info,
                          isDsd = tracks.front().isDsd](const Track& track) {
        return track.isDsd != isDsd || track.info.getSampleRate() != first.getSampleRate() ||
               track.info.getNumChannels() != first.getNumChannels();
    };
    return static_cast<std::size_t>(std::ranges::find_if(tracks, differs) - tracks.begin());
}

} // namespace keldaPlay
