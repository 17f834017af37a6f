#pragma once

#include <cstdint>
#include <optional>

#include "Journal.h"
#include "Options.h"
#include "Presenter.h"
#include "Statistics.h"
#include "Trace.h"
#include "TrackSchedule.h"

namespace keldaPlay {

/// Follows a stream while it plays: counts what happens, tells the user of it, and keeps what the
/// user wants to have of it. For the main thread, which has the time.
class StreamObserver
{
public:
    /// Throws std::runtime_error when the trace can't be written.
    StreamObserver(const Options& options, Presenter& presenter, Statistics& statistics);

    /// What the renderer tells.
    [[nodiscard]] Journal& journal() { return m_journal; }

    /// What the producer tells.
    [[nodiscard]] TrackSchedule& schedule() { return m_schedule; }

    /// Takes what has happened since the last call.
    void update();

    /// The stream is over.
    /// @param wasInterrupted tracks that are due later have not been heard
    void finish(bool wasInterrupted);

    /// Throws std::runtime_error when the trace could not be written whole.
    void commitTrace();

private:
    void takeRecords();
    void tellTracks(miscUtils::TimeValue streamTime);
    void tellIncidents(const BlockRecord& record);
    void tellProgress(miscUtils::TimeValue streamTime);
    [[nodiscard]] double position() const { return m_statistics.counts().dataSeconds(); }

    Presenter& m_presenter;
    Statistics& m_statistics;
    Journal m_journal;
    TrackSchedule m_schedule;
    std::optional<Trace> m_trace;
    TrackSchedule::Entry m_current;
    BlockRecord m_last;
    bool m_hasPlayed = false;
    std::optional<std::int64_t> m_lostSince; // ns
};

} // namespace keldaPlay
