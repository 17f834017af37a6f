#include "JsonPresenter.h"

#include <cmath>
#include <cstdio>

#include <nlohmann/json.hpp>

#include "Verdict.h"

namespace keldaPlay {

namespace {

using Json = nlohmann::ordered_json;

// Each line is there at once, for whoever waits for it; what is no UTF-8 becomes U+FFFD.
void print(const Json& event)
{
    constexpr int onOneLine = -1;
    const std::string text =
        event.dump(onOneLine, ' ', false, Json::error_handler_t::replace) + "\n";
    std::fputs(text.c_str(), stdout);
    std::fflush(stdout);
}

/// To 1/1000, not to the last bit of the sum that it is.
double rounded(double value)
{
    return std::round(value * 1000) / 1000;
}

double milliseconds(double nanoseconds)
{
    return rounded(nanoseconds * 1e-6);
}

Json countsOf(const Statistics& statistics)
{
    const keldaSync::FrameCounts& counts = statistics.counts();
    return {{"underruns", counts.underruns()},
            {"skippedFrames", counts.skippedFrames()},
            {"missingFrames", counts.missingFrames()},
            {"gapFrames", counts.gapFrames()},
            {"discardedFrames", counts.discardedFrames()},
            {"unheardFrames", counts.unheardFrames()},
            {"mutedFrames", counts.mutedFrames()},
            {"unrecordedBlocks", counts.unrecordedBlocks()},
            {"moved", rounded(counts.movedSeconds())}};
}

// null: not measured.
Json errorsOf(const keldaSync::ErrorStatistics& errors)
{
    const auto field = [&errors](double us) {
        return errors.areMeasured() ? Json(rounded(us)) : Json();
    };
    return {{"errorMean", field(errors.mean())},
            {"errorRms", field(errors.rms())},
            {"errorP99", field(errors.percentile(0.99))},
            {"errorWorst", field(errors.signedWorst())}};
}

Json verdictFieldsOf(const Statistics& statistics)
{
    return {{"verdict", toString(verdictOf(statistics))},
            {"reason", reasonOf(statistics)},
            {"lockTime", statistics.hasLocked() ? Json(rounded(statistics.lockTime())) : Json()},
            {"events", statistics.events().size()}};
}

} // namespace

void JsonPresenter::streamStarts(const StreamStart& start)
{
    const audioUtils::OutputDevice& device = start.device;
    m_hasStarted = true;
    Json event = {{"event", "start"},
                  {"device", start.request.name},
                  {"rate", device.sampleRate()},
                  {"channels", device.numChannels()},
                  {"format", audioUtils::toString(start.request.format)},
                  {"period", device.periodSize()},
                  {"buffer", device.bufferSize()},
                  {"startThreshold", device.startThreshold()},
                  {"sourceRate", start.source.getSampleRate()},
                  {"sourceChannels", start.source.getNumChannels()},
                  {"sourceFormat", audioUtils::toString(start.source.getPcmFormat())}};
    if (!start.carried.empty()) {
        event["carried"] = start.carried;
    }
    print(event);
}

void JsonPresenter::trackBegins(const Track& track, double position)
{
    const std::optional<double> duration = track.seconds();
    print({{"event", "file"},
           {"position", rounded(position)},
           {"index", track.index},
           {"path", track.path},
           {"rate", track.info.getSampleRate()},
           {"channels", track.info.getNumChannels()},
           {"format", audioUtils::toString(track.info.getPcmFormat())},
           {"duration", duration ? Json(rounded(*duration)) : Json()}});
}

void JsonPresenter::goesOn(const Progress& progress)
{
    if (!m_interval.isDue()) {
        return;
    }
    const BlockRecord& last = progress.last;
    Json event = {{"event", "status"},
                  {"position", rounded(progress.statistics.counts().dataSeconds())},
                  {"file", progress.track != nullptr ? Json(progress.track->index) : Json()},
                  {"filePosition", rounded(progress.trackPosition)},
                  {"queue", milliseconds(static_cast<double>(last.queueFill))},
                  {"delay", milliseconds(static_cast<double>(last.deviceDelay))},
                  {"error", rounded(static_cast<double>(last.delta) * 1e-3)},
                  {"adjustment", rounded(last.adjustmentPpm)}};
    event.update(countsOf(progress.statistics));
    print(event);
}

void JsonPresenter::ranDry(double position)
{
    print({{"event", "underrun"}, {"position", rounded(position)}});
}

void JsonPresenter::deviceIsLost(double position)
{
    print({{"event", "deviceLost"}, {"position", rounded(position)}});
}

void JsonPresenter::deviceIsBack(double position, double secondsAway)
{
    print(
        {{"event", "deviceBack"}, {"position", rounded(position)}, {"away", rounded(secondsAway)}});
}

void JsonPresenter::ends(const Statistics& statistics, ExitStatus status, const std::string& error)
{
    if (!error.empty()) {
        print({{"event", "error"}, {"message", error}});
        printError(error, m_color);
    }
    Json event = {{"event", "end"}, {"status", static_cast<int>(status)}};
    if (m_hasStarted) {
        event.update({{"played", rounded(statistics.counts().dataSeconds())},
                      {"blocks", statistics.counts().blocks()},
                      {"silence", rounded(statistics.counts().silenceSeconds())}});
        event.update(errorsOf(statistics.errors()));
        event.update(countsOf(statistics));
        event.update(verdictFieldsOf(statistics));
    }
    if (!m_reportPage.empty()) {
        event["report"] = m_reportPage;
    }
    print(event);
}

} // namespace keldaPlay
