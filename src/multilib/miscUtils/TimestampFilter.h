#pragma once

#include <string>

#include "miscUtils/Export.h"
#include "miscUtils/TimeValue.h"

namespace miscUtils {

/// Smooths the jitter out of the timestamps of an audio stream, without adding a lag.
///
/// The stream itself is the better clock: between two timestamps a known number of frames has
/// passed, so the next timestamp can be predicted. The filter corrects its prediction by a part of
/// each error, and its idea of a frame's duration by a smaller part: a second-order delay-locked
/// loop, which follows a constant rate error with no error left over.
///
///     error      = raw − predicted
///     filtered   = predicted + α · error          α = 1 − θ²
///     nsPerFrame = nsPerFrame + β · error / n     β = (1 − θ)²,  θ = exp(−n / (sampleRate · τ))
///
/// with n frames since the last timestamp and the time constant τ. The loop is that of
/// F. Adriaensen, "Using a DLL to filter time" (Linux Audio Conference, 2005); its gains are those
/// of the critically damped (fading-memory) g-h filter, stable for packets of any length. Of the
/// first timestamps of a stream none is better than the others: until 1 / k falls below α the k-th
/// is weighted by 1 / k, and the filtered time is their average.
///
/// Use: advance() after every block of frames, filter() on the timestamp of the frame that follows.
/// One object belongs to one thread at a time; nothing here allocates after construction.
class KELDA_EXPORT TimestampFilter
{
public:
    /// @param timeConstant τ of the loop, in ns
    /// @param name         tells filters apart
    TimestampFilter(const unsigned long& timeConstant, const std::string& name);

    /// As given to the constructor.
    [[nodiscard]] const std::string& name() const;

    /// Frames per second of the stream being timed. Restarts the history. Without a positive rate
    /// nothing can be predicted and timestamps pass through.
    void setSampleRate(const double& sampleRate);

    /// Turns the smoothing on (as it is after construction) or off; when off, timestamps pass
    /// through. Restarts the history.
    void setEnabled(const bool& enabled);

    /// The largest error, in ns, that is smoothed; a timestamp further off is a jump. No limit is
    /// set after construction.
    void setMaxErrorThreshold(const unsigned long& maxError);

    /// The smoothed time for a raw one, on the same clock.
    ///
    /// A timestamp is returned unchanged when it is the first after a restart, when no frame has
    /// passed since the last one (so polling an empty stream adds no lag), and when it is a jump.
    /// After a jump two predictions are kept, one from before and one from the jump itself, and
    /// the next timestamp decides: frames that fill the gap (silence) may be reported by advance()
    /// after the jump has been filtered, and then the old prediction was right all along.
    ///
    /// NoTimeValue is returned as it is and changes nothing.
    [[nodiscard]] TimeValue filter(const unsigned long& rawTime);

    /// Tells the filter how many frames have passed.
    void advance(const int& numFrames) { m_framesSinceAnchor += numFrames; }

    /// Forgets the history, the learnt frame duration included; the stream restarts at `time`.
    ///
    /// The next timestamp is returned unchanged and becomes the start of the new history, whether
    /// `time` names one already or is NoTimeValue.
    void reset(const unsigned long& time);

private:
    // A point in time, with the fraction of a nanosecond kept apart: a double alone resolves only
    // 256 ns at today's date in nanoseconds.
    struct KELDA_LOCAL Instant
    {
        TimeValue whole = 0;
        double fraction = 0;

        void moveBy(double nanoseconds);
        [[nodiscard]] double distanceTo(TimeValue time) const;
        [[nodiscard]] TimeValue rounded() const;
    };

    struct Anchor
    {
        Instant time;
        double numTimestamps = 0; // that it rests on; 0: there has been none since the restart
    };

    struct Gains
    {
        long numFrames = 0; // that the gains were calculated for
        double time = 0;    // α
        double rate = 0;    // β / frames
    };

    KELDA_LOCAL void restart();
    KELDA_LOCAL TimeValue anchorAt(TimeValue time);
    [[nodiscard]] KELDA_LOCAL TimeValue correctAnchor(double passed, double error);
    [[nodiscard]] KELDA_LOCAL const Gains& gainsFor(long numFrames);

    double m_timeConstant;
    std::string m_name;
    double m_maxError;
    double m_nominalNsPerFrame = 0;
    bool m_enabled = true;

    Anchor m_anchor;       // the last filtered time
    bool m_jumped = false; // which was a jump: m_beforeJump is a second candidate
    Anchor m_beforeJump;   // what the jump's timestamp should have been
    long m_framesSinceAnchor = 0;
    double m_nsPerFrame = 0;
    Gains m_gains;
};

} // namespace miscUtils
