#include "support/PcmQueueModel.h"

#include <algorithm>
#include <cstdlib>

namespace testSupport {

using miscUtils::NoTimeValue;

namespace {

__extension__ using Wide = unsigned __int128;

std::string seconds(std::uint64_t time)
{
    return std::to_string(static_cast<double>(time) / 1e9);
}

std::string milliseconds(std::int64_t delta)
{
    return std::to_string(static_cast<double>(delta) / 1e6);
}

} // namespace

void PcmQueueModel::configure(bool timestampingEnabled, std::size_t maxFillLevelInMS,
                              unsigned int sampleRate, unsigned int channels,
                              unsigned int numBytesPerSample, const std::string& queueName,
                              bool filterEnabled, TimeValue ptsJumpThreshold,
                              TimeValue filterMaxErrorThreshold)
{
    timestamping = timestampingEnabled;
    bytesPerFrame = channels * numBytesPerSample;
    bytesPerSecond = channels * numBytesPerSample * sampleRate;
    threshold = static_cast<TimeValueDelta>(ptsJumpThreshold);
    name = queueName;
    synced = false;
    readPts = writePts = NoTimeValue;
    counters = {};
    bytes.clear();
    capacity = bytesFor(maxFillLevelInMS * 1'000'000);
    readFilter.setSampleRate(sampleRate);
    writeFilter.setSampleRate(sampleRate);
    readFilter.setEnabled(filterEnabled);
    writeFilter.setEnabled(filterEnabled);
    readFilter.setMaxErrorThreshold(filterMaxErrorThreshold);
    writeFilter.setMaxErrorThreshold(filterMaxErrorThreshold);
    say("DEBUG", ": Configured queue:  timestamping enabled: " +
                     std::to_string(timestampingEnabled ? 1 : 0) +
                     "  max fill level: " + std::to_string(maxFillLevelInMS) +
                     " ms  sample rate: " + std::to_string(sampleRate) +
                     " Hz  number of channels: " + std::to_string(channels) +
                     "  bytes per sample: " + std::to_string(numBytesPerSample));
    aborted = false;
}

bool PcmQueueModel::hasRoomFor(TimeValue pts, const std::vector<unsigned char>& data) const
{
    PcmQueueModel trial = *this; // what it has to do first may insert, discard or change the time
    trial.capacity = SIZE_MAX;
    const std::size_t before = trial.bytes.size();
    if (aborted || !trial.write(pts, data)) {
        return true;
    }
    const bool discarded = trial.counters.resets != counters.resets;
    const std::size_t inserted = discarded ? 0 : trial.bytes.size() - before - data.size();
    const std::size_t held = discarded ? 0 : std::min(capacity, before + inserted);
    return held + data.size() <= capacity;
}

bool PcmQueueModel::write(TimeValue pts, const std::vector<unsigned char>& data)
{
    if (aborted) {
        say("INFO", ": Write aborted!");
        return false;
    }
    const bool timed = timestamping && pts != NoTimeValue;
    if (timed) {
        if (bytes.empty()) {
            say("DEBUG", ": Buffer is empty, start reading pts = " + seconds(pts));
            writeFilter.reset(pts);
        }
        pts = writeFilter.filter(pts);
        if (writePts != NoTimeValue) {
            const auto delta = static_cast<TimeValueDelta>(pts - writePts);
            const std::size_t silence =
                delta > threshold ? bytesFor(static_cast<TimeValue>(delta)) : 0;
            if (delta > threshold && silence < bytes.size()) {
                say("WARN", ": Pts jump of " + milliseconds(delta) + " ms detected. Inserting " +
                                std::to_string(silence / bytesPerFrame) + " silence frames");
                writeFilter.advance(static_cast<int>(silence / bytesPerFrame));
                const std::size_t stored = std::min(silence, capacity - bytes.size());
                bytes.insert(bytes.end(), stored, 0);
                counters.insertedFrames += stored / bytesPerFrame;
            } else if (delta > threshold || delta < -threshold) {
                say("WARN",
                    ": Pts jump of " + milliseconds(delta) + " ms detected. Resetting ringbuffer");
                bytes.clear();
                writeFilter.reset(NoTimeValue);
                ++counters.resets;
            }
        }
        if (bytes.empty()) {
            say("INFO", ": Buffer is empty, startPts = " + seconds(pts));
            readPts = pts;
            writeFilter.reset(NoTimeValue);
        }
    }
    if (!data.empty()) {
        bytes.insert(bytes.end(), data.begin(), data.end());
        writeFilter.advance(static_cast<int>(data.size() / bytesPerFrame));
    }
    if (timed) {
        writePts = pts + durationOf(data.size());
        say("DEBUG", ": new writePts: " + seconds(writePts) + " from " +
                         std::to_string(data.size()) + " bytes");
        deriveReadPts();
    }
    return true;
}

std::size_t PcmQueueModel::read(TimeValue time, std::vector<unsigned char>& out,
                                TimeValueDelta& delta)
{
    const bool timed = timestamping && time != NoTimeValue;
    if (timed) {
        time = readFilter.filter(time);
    }
    std::size_t total = 0;
    while (total < out.size()) {
        bool underrun = false;
        if (timed) {
            const TimeValueDelta diff =
                readPts == NoTimeValue ? 0 : static_cast<TimeValueDelta>(time - readPts);
            delta = diff;
            if (std::labs(diff) > threshold || !synced) {
                say("INFO", ": Pts jump of " + milliseconds(diff) + " ms detected when reading");
                synced = false;
                delta = 0;
                if (diff <= 0) {
                    const std::size_t silence =
                        std::min(out.size() - total, bytesFor(static_cast<TimeValue>(-diff)));
                    say("INFO", ": Creating " + std::to_string(silence) + " of silence bytes");
                    std::fill_n(out.begin() + static_cast<std::ptrdiff_t>(total), silence, 0);
                    total += silence;
                    time += durationOf(silence);
                    counters.silenceFrames += silence / bytesPerFrame;
                } else {
                    const std::size_t skip = bytesFor(static_cast<TimeValue>(diff));
                    say("INFO", ": Skipping " + std::to_string(skip) + " bytes");
                    underrun = drop(skip) < skip;
                    deriveReadPts();
                    if (underrun) {
                        say("INFO", ": No data available for reading - buffer underrun");
                        ++counters.underruns;
                    }
                }
            }
        }
        if (underrun || bytes.empty()) {
            break;
        }
        const std::size_t count = std::min(bytes.size(), out.size() - total);
        for (std::size_t i = 0; i < count; ++i) {
            out[total++] = bytes.front();
            bytes.pop_front();
        }
        if (timestamping) {
            synced = synced || count > 0;
            time += timed ? durationOf(count) : 0;
            deriveReadPts();
            say("DEBUG", ": new readPts: " + seconds(readPts));
        }
    }
    readFilter.advance(static_cast<int>(total / bytesPerFrame));
    return total / bytesPerFrame;
}

void PcmQueueModel::flushOldData(TimeValue now)
{
    if (!timestamping || now == NoTimeValue || !(readPts < now)) {
        return;
    }
    if (writePts < now) {
        say("INFO", ": all data in the buffer is in the past, flushing the whole buffer");
        counters.skippedFrames += bytes.size() / bytesPerFrame;
        bytes.clear();
        writeFilter.reset(NoTimeValue);
        readPts = writePts = now;
    } else {
        const std::size_t skip = bytesFor(now - readPts);
        say("INFO", ": Skipping " + std::to_string(skip) + " bytes");
        drop(skip);
        deriveReadPts();
    }
}

PcmQueueModel::TimeValue PcmQueueModel::bufferedDuration(TimeValue now)
{
    if (bytesPerSecond == 0) {
        return 0;
    }
    const TimeValue held = durationOf(bytes.size());
    if (now == NoTimeValue || !timestamping) {
        return held;
    }
    TimeValue duration = held;
    if (writePts != NoTimeValue) {
        const auto left = static_cast<TimeValueDelta>(writePts - now);
        if (left < 0) {
            say("DEBUG", ": all buffered data is in the past, difference = - " +
                             seconds(now - writePts) + " s");
            return 0;
        }
        duration = std::min(static_cast<TimeValue>(left), held);
    }
    say("DEBUG", ": actual buffered duration = " +
                     milliseconds(static_cast<TimeValueDelta>(duration)) + " ms");
    return duration;
}

void PcmQueueModel::reset()
{
    bytes.clear();
    readPts = writePts = NoTimeValue;
    readFilter.reset(NoTimeValue);
    writeFilter.reset(NoTimeValue);
}

PcmQueueModel::TimeValue PcmQueueModel::durationOf(std::size_t count) const
{
    return static_cast<TimeValue>(static_cast<Wide>(count) * 1'000'000'000 / bytesPerSecond);
}

std::size_t PcmQueueModel::bytesFor(TimeValue duration) const
{
    const Wide count = static_cast<Wide>(duration) * bytesPerSecond / 1'000'000'000;
    return static_cast<std::size_t>(count / bytesPerFrame * bytesPerFrame);
}

void PcmQueueModel::deriveReadPts()
{
    readPts = writePts == NoTimeValue ? NoTimeValue : writePts - durationOf(bytes.size());
}

void PcmQueueModel::say(const char* level, const std::string& message)
{
    log.push_back(std::string(level) + " " + name + message);
}

std::size_t PcmQueueModel::drop(std::size_t count)
{
    count = std::min(count, bytes.size());
    bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count));
    counters.skippedFrames += count / bytesPerFrame;
    return count;
}

} // namespace testSupport
