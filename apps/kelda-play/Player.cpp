#include "Player.h"

#include <algorithm>
#include <array>
#include <clocale>
#include <exception>
#include <iterator>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include <unistd.h>

#include "Color.h"
#include "EndSignals.h"
#include "Errors.h"
#include "FilesInUse.h"
#include "Logging.h"
#include "Negotiation.h"
#include "Presenter.h"
#include "ReportFolder.h"
#include "Session.h"
#include "Statistics.h"
#include "Track.h"
#include "WithoutEffect.h"

namespace keldaPlay {

namespace {

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

/// A file that is standard output is to be alone there.
Options withOwnOutput(Options options)
{
    std::vector<std::string*> own;
    std::ranges::copy_if(std::array{&options.recordPath, &options.tracePath},
                         std::back_inserter(own), [](const std::string* path) {
                             return !path->empty() && keldaFiles::isStandardOutput(*path);
                         });
    if (!own.empty() && options.json) {
        throw UsageError(*own.front() + ": is standard output, which --json writes to");
    }
    const std::string taken = own.empty() ? "" : keldaFiles::takeStandardOutput();
    for (std::string* const path : own) {
        *path = taken;
    }
    return options;
}

/// Throws FileConflict when something would be written over what is read or written.
void refuseFileConflicts(const Options& options, std::span<const Track> tracks)
{
    keldaFiles::FilesInUse files;
    for (const Track& track : tracks) {
        files.addInput(track.raw ? "/dev/stdin" : track.path);
    }
    if (!options.recordPath.empty()) {
        files.addOutput("--record", options.recordPath);
    }
    if (!options.tracePath.empty()) {
        files.addOutput("--trace", options.tracePath);
    }
    if (!options.reportFolder.empty()) {
        keldaReport::addPages(files, options.reportFolder);
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
    refuseWithoutEffect(options, tracks);
    std::optional<double> secondsLeft = options.durationSeconds;
    double secondsOfRound = 0;
    do {
        secondsOfRound = 0;
        for (std::span<const Track> rest = tracks; !rest.empty();) {
            const std::span<const Track> run = rest.first(lengthOfRun(rest));
            rest = rest.subspan(run.size());
            Session session(playing, run, options.loop && isOneStream, secondsLeft);
            session.run();
            if (playing.isToEnd() || session.playlist().hasReachedLimit()) {
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

int play(const Options& wanted)
{
    EndSignals signals; // first, for they are to be blocked in all threads, the logger's too
    const Options options = withOwnOutput(wanted);
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
            refuseFileConflicts(options, tracks);
            playAll({options, signals, *presenter, statistics}, tracks);
        }
        problem = lossOf(statistics);
        status = problem.empty() ? Ended : NotAllHeard;
    } catch (const std::exception& error) {
        status = exitStatusOf(error);
        problem = error.what();
    }
    presenter->ends(statistics, status, problem);
    return status;
}

} // namespace keldaPlay
