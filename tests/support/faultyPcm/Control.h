#pragma once

#include <array>
#include <atomic>
#include <cstdint>

namespace testSupport::faultyPcm {

/// The libasound functions that AlsaCalls.cpp stands before, in this order.
#define KELDA_ALSA_CALLS(CALL)                                                                     \
    CALL(snd_pcm_open)                                                                             \
    CALL(snd_pcm_close)                                                                            \
    CALL(snd_pcm_drop)                                                                             \
    CALL(snd_pcm_drain)                                                                            \
    CALL(snd_pcm_prepare)                                                                          \
    CALL(snd_pcm_recover)                                                                          \
    CALL(snd_pcm_state)                                                                            \
    CALL(snd_pcm_status)                                                                           \
    CALL(snd_pcm_delay)                                                                            \
    CALL(snd_pcm_avail_update)                                                                     \
    CALL(snd_pcm_writei)                                                                           \
    CALL(snd_pcm_set_chmap)                                                                        \
    CALL(snd_pcm_hw_params_any)                                                                    \
    CALL(snd_pcm_hw_params_set_access)                                                             \
    CALL(snd_pcm_hw_params_set_format)                                                             \
    CALL(snd_pcm_hw_params_set_channels)                                                           \
    CALL(snd_pcm_hw_params_set_rate_resample)                                                      \
    CALL(snd_pcm_hw_params_set_rate_near)                                                          \
    CALL(snd_pcm_hw_params_set_buffer_size_near)                                                   \
    CALL(snd_pcm_hw_params_set_period_size_near)                                                   \
    CALL(snd_pcm_hw_params)                                                                        \
    CALL(snd_pcm_sw_params_current)                                                                \
    CALL(snd_pcm_sw_params_set_start_threshold)                                                    \
    CALL(snd_pcm_sw_params_set_avail_min)                                                          \
    CALL(snd_pcm_sw_params_set_tstamp_mode)                                                        \
    CALL(snd_pcm_sw_params_set_tstamp_type)                                                        \
    CALL(snd_pcm_sw_params)

enum class Call : std::uint8_t {
#define CALL(name) name,
    KELDA_ALSA_CALLS(CALL)
#undef CALL
};

inline constexpr std::array callNames = {
#define CALL(name) #name,
    KELDA_ALSA_CALLS(CALL)
#undef CALL
};
inline constexpr std::size_t numCalls = callNames.size();

/// The environment variable that names the folder of the sound card: "control" is the file that
/// holds the Control, "played.raw" gets what was played, "dropped.raw" what was taken, but not
/// played.
inline constexpr const char* folderVariable = "KELDA_FAULTY_PCM";

/// How the simulated sound card behaves, and what became of it: shared between a test and the
/// process that plays, which may be the same. All zero is a perfect card that grants everything.
///
/// Frames count from the opening of the file, over all closings and reopenings.
struct Control
{
    // The card. Constraints count from the next opening; 0: any.
    std::atomic<std::uint32_t> onlyRate;   // Hz
    std::atomic<bool> severalRates;        // 44.1, 48, 96 and 1411.2 kHz
    std::atomic<std::uint32_t> onlyPeriod; // frames
    std::atomic<std::uint32_t> onlyBuffer; // frames
    std::atomic<std::uint32_t> onlyFormat; // ALSA's code + 1
    std::atomic<std::int32_t> crystalPpm;  // from the next start of the stream
    std::atomic<std::int32_t> pitchPpm;    // of the PLL, by the control "Playback Pitch 1000000"
    std::atomic<std::uint32_t> pitchChanges;
    std::atomic<std::int64_t> delayOffset;  // frames that the reported delay is off
    std::atomic<std::uint32_t> granularity; // frames by which position and delay move; 0: 1
    std::atomic<bool> isGone;               // -ENODEV for whatever is asked
    std::atomic<std::uint32_t> shortWrites; // frames taken at a time; 0: all
    std::atomic<std::uint32_t> slowWrites;  // us that taking them lasts
    std::atomic<std::uint32_t> slowStarts;  // ms that starting the stream lasts
    std::atomic<bool> hangsOnOpen;          // as long as it is set
    std::atomic<bool> spinsOnWrite;         // the same; and uses up a processor
    std::atomic<std::uint32_t> numStuck;    // callers that this holds up now
    // ns; moves on while a writer waits, and statuses tell it. 0: the real one
    std::atomic<std::int64_t> virtualTime;

    // One fault, when the card is to take the frame `faultAtFrame` or a later one: -EPIPE (what it
    // holds is lost), -ESTRPIPE (it pauses until resumed), -EINTR, -EAGAIN, -ENODEV (as isGone),
    // -EIO.
    std::atomic<std::uint64_t> faultAtFrame;
    std::atomic<std::int32_t> fault;
    std::atomic<std::uint32_t> faultRepeats; // how many times more, each `faultEvery` frames later
    std::atomic<std::uint64_t> faultEvery;
    std::atomic<std::uint32_t> emptyAfterFault; // added to emptyWrites with each

    // Single calls of libasound.
    std::array<std::atomic<std::int32_t>, numCalls> results; // returned instead of calling; 0: none
    std::array<std::atomic<std::uint32_t>, numCalls> counts;
    std::array<std::atomic<std::int64_t>, numCalls> values; // the latest one passed, of the setters
    std::array<std::atomic<Call>, 256> sequence; // of the first calls since numSequence was 0
    std::atomic<std::uint32_t> numSequence;
    std::atomic<std::uint32_t> emptyWrites; // how many calls of snd_pcm_writei still take nothing

    // The status. Times in ns; the plugin library itself gives none but the system's.
    std::atomic<std::uint32_t> zeroTimestamps; // how many statuses still lack a system timestamp
    std::atomic<bool> hasAudioTimestamp;       // the time of what has been played since the start
    std::atomic<bool> overridesStatus;
    std::atomic<std::int64_t> systemTimestamp;
    std::atomic<std::int64_t> audioTimestamp;
    std::atomic<std::int64_t> statusDelay; // frames

    // What became of it.
    std::atomic<std::uint32_t> rate;   // Hz, as configured
    std::atomic<std::int32_t> process; // that opened it last
    std::atomic<std::uint32_t> opens;
    std::atomic<std::uint32_t> closes;
    std::atomic<std::uint64_t> framesTaken;
    std::atomic<std::uint64_t> framesPlayed;
    std::atomic<std::uint64_t> framesDropped; // taken, but not played
    std::atomic<std::uint32_t> drops;         // times that any were
    std::atomic<std::uint32_t> underruns;     // not counting injected ones
    std::atomic<std::uint32_t> numChannelsMapped;
    std::array<std::atomic<std::uint32_t>, 8> channelMap; // ALSA's positions

    /// A start of the stream. They are complete up to numRuns.
    struct Run
    {
        std::atomic<std::int64_t> startTime;     // ns of the monotonic raw clock
        std::atomic<std::uint64_t> playedBefore; // frames
    };
    std::array<Run, 256> runs;
    std::atomic<std::uint32_t> numRuns;
};

} // namespace testSupport::faultyPcm
