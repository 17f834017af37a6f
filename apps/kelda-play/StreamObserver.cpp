#include "StreamObserver.h"

#include <algorithm>

#include "Opening.h"

namespace keldaPlay {

using audioUtils::OutputDevice;
using miscUtils::TimeValue;

StreamObserver::StreamObserver(const Options& options, Presenter& presenter, Statistics& statistics)
    : m_presenter(presenter), m_statistics(statistics)
{
    if (!options.tracePath.empty()) {
        const Opening opening(options.tracePath);
        m_trace.emplace(options.tracePath);
    }
}

void StreamObserver::update()
{
    takeRecords();
    const TimeValue streamTime =
        miscUtils::getMonotonicRawSysclockTime() - static_cast<TimeValue>(m_last.moved);
    tellTracks(streamTime);
    if (m_hasPlayed) {
        tellProgress(streamTime);
    }
}

void StreamObserver::finish(bool wasInterrupted)
{
    update();
    if (!wasInterrupted) {
        tellTracks(miscUtils::NoTimeValue); // also of those that hold less than a moment
    }
}

void StreamObserver::commitTrace()
{
    if (m_trace) {
        m_trace->commit();
    }
}

void StreamObserver::takeRecords()
{
    for (const BlockRecord& record : m_journal.take()) {
        m_statistics.add(record);
        tellIncidents(record);
        if (m_trace) {
            m_trace->write(record);
        }
        m_last = record;
        m_hasPlayed = m_hasPlayed || record.isHeard();
    }
    m_statistics.addUnrecorded(m_journal.takeDropped());
}

void StreamObserver::tellTracks(TimeValue streamTime)
{
    while (const auto due = m_schedule.takeDue(streamTime)) {
        m_current = *due;
        m_presenter.trackBegins(*due->track, position());
    }
}

void StreamObserver::tellIncidents(const BlockRecord& record)
{
    const std::int64_t time = record.time();
    if (record.result == OutputDevice::Underrun) {
        m_presenter.ranDry(position());
    }
    if (!record.isHeard() && !m_lostSince) {
        m_lostSince = time;
        m_presenter.deviceIsLost(position());
    } else if (record.isHeard() && m_lostSince) {
        m_presenter.deviceIsBack(position(), static_cast<double>(time - *m_lostSince) * 1e-9);
        m_lostSince.reset();
    }
}

void StreamObserver::tellProgress(TimeValue streamTime)
{
    const Track* const track = m_current.track;
    double seconds = 0;
    if (track != nullptr) {
        seconds = static_cast<double>(streamTime - m_current.pts) * 1e-9;
        seconds = std::min(seconds, track->seconds().value_or(seconds));
    }
    m_presenter.goesOn({m_statistics, m_last, track, seconds});
}

} // namespace keldaPlay
