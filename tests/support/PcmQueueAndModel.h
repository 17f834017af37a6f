#pragma once

#include <random>
#include <string>

#include "audioUtils/PcmQueue.h"
#include "support/Choices.h"
#include "support/Differences.h"
#include "support/LogCapture.h"
#include "support/PcmQueueModel.h"

namespace testSupport {

struct QueueParameters
{
    bool timestamping;
    bool filter;
    std::size_t maxFillLevelInMS;
    unsigned int sampleRate;
    unsigned int channels;
    unsigned int numBytesPerSample;
    miscUtils::TimeValue jumpThreshold;
};

/// A queue and its model, which get the same calls; those that would block are left out.
class PcmQueueAndModel
{
public:
    PcmQueueAndModel(Choices& choices, const QueueParameters& parameters);

    /// Makes one call.
    /// @return in what the two differ then: results, bytes, times, counters or lines of the log
    [[nodiscard]] std::string call();

private:
    void configure();
    void write();
    void read();
    void flushOldData();
    void anyOperation();
    void compareStates();
    [[nodiscard]] miscUtils::TimeValue deviation();
    [[nodiscard]] std::size_t anyLength();

    Choices& m_choices;
    const QueueParameters m_parameters;
    std::minstd_rand m_content;
    LogCapture m_log{"PcmQueue"};
    audioUtils::PcmQueue m_queue;
    PcmQueueModel m_model;
    Differences m_differences;
    miscUtils::TimeValue m_now = 0;
    miscUtils::TimeValue m_nextPts = 0;
};

} // namespace testSupport
