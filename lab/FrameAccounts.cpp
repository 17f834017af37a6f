#include "FrameAccounts.h"

#include "Content.h"

namespace keldaLab {

namespace {

constexpr std::size_t bytesPerFrame = contentChannels * sizeof(float);

} // namespace

void FrameAccounts::addBlock(std::span<const unsigned char> block,
                             const keldaPlay::BlockRecord& record)
{
    m_padded += record.paddedFrames;
    for (; !block.empty(); block = block.subspan(bytesPerFrame)) {
        const double number = numberAt(block.data());
        if (number < 0) {
            ++m_silence;
            continue;
        }
        ++m_heard;
        m_repeated += number <= m_last ? 1 : 0;
        m_last = number;
    }
}

void FrameAccounts::close(audioUtils::PcmQueue& queue, unsigned int sampleRate)
{
    m_counters = queue.counters();
    const miscUtils::TimeValue left = queue.bufferedDuration(miscUtils::NoTimeValue);
    m_left = framesIn(left, sampleRate);
}

std::uint64_t FrameAccounts::uncounted() const
{
    const std::uint64_t in = m_sent + m_counters.insertedFrames;
    const std::uint64_t out = m_heard + m_silence - m_counters.silenceFrames - m_padded +
                              m_counters.skippedFrames + m_discarded + m_left;
    return in > out ? in - out : out - in;
}

std::uint64_t FrameAccounts::silenceUncounted() const
{
    const std::uint64_t counted = m_counters.silenceFrames + m_padded + m_counters.insertedFrames;
    return m_silence > counted ? m_silence - counted : 0;
}

} // namespace keldaLab
