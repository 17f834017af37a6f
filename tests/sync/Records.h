#pragma once

// Streams as records of their blocks, without a device that would take its time.

#include "SyncStatistics.h"

namespace syncTest {

using keldaSync::BlockRecord;

constexpr unsigned int rate = 48000;
constexpr std::uint64_t framesPerBlock = 480;
constexpr miscUtils::TimeValue blockNs = 10'000'000;

/// Makes the records of one stream, block after block, and adds them up.
class Stream
{
public:
    explicit Stream(keldaSync::SyncStatistics& sync) : m_sync(sync) { sync.beginStream(rate); }

    /// What comes after silence begins somewhere in a block.
    Stream& begin()
    {
        BlockRecord record;
        record.silenceFrames = 200;
        return add(record);
    }

    /// @param errorUs of each block
    Stream& play(double seconds, double errorUs = 0)
    {
        BlockRecord record;
        record.delta = static_cast<miscUtils::TimeValueDelta>(errorUs * 1000);
        for (int i = 0; i < static_cast<int>(seconds * 100 + 0.5); ++i) {
            add(record);
        }
        return *this;
    }

    /// Is so long in the queue, and then heard as silence.
    Stream& gap(std::uint64_t frames)
    {
        BlockRecord record;
        record.insertedFrames = frames;
        record.queueFill = 300'000'000;
        return add(record);
    }

    Stream& pad(double seconds)
    {
        BlockRecord record;
        record.paddedFrames = framesPerBlock;
        for (int i = 0; i < static_cast<int>(seconds * 100 + 0.5); ++i) {
            add(record);
        }
        return *this;
    }

    /// Blocks of which nothing is known.
    Stream& missRecords(std::uint64_t blocks)
    {
        m_sync.addUnrecorded(blocks);
        return *this;
    }

    Stream& loseDevice(double seconds)
    {
        BlockRecord record;
        record.result = audioUtils::OutputDevice::NotOpened;
        for (int i = 0; i < static_cast<int>(seconds * 100 + 0.5); ++i) {
            add(record);
        }
        return *this;
    }

    Stream& add(BlockRecord record)
    {
        constexpr std::int64_t delay = 80'000'000;
        record.numFrames = framesPerBlock;
        record.deviceDelay = record.isHeard() ? delay : 0;
        record.dueTime = m_now + static_cast<miscUtils::TimeValue>(record.deviceDelay);
        m_now += blockNs;
        m_sync.add(record);
        return *this;
    }

private:
    keldaSync::SyncStatistics& m_sync;
    miscUtils::TimeValue m_now = 1'000'000'000'000;
};

} // namespace syncTest
