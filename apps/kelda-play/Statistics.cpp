#include "Statistics.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <utility>

#include "Color.h"

namespace keldaPlay {

void Statistics::beginStream(unsigned int sampleRate)
{
    m_dataSecondsBefore = dataSeconds();
    m_silenceSecondsBefore = silenceSeconds();
    m_dataFrames = m_silenceFrames = m_paddingInDoubt = 0;
    m_sampleRate = sampleRate;
}

double Statistics::dataSeconds() const
{
    return m_dataSecondsBefore + static_cast<double>(m_dataFrames) / m_sampleRate;
}

double Statistics::silenceSeconds() const
{
    return m_silenceSecondsBefore + static_cast<double>(m_silenceFrames) / m_sampleRate;
}

void Statistics::add(const BlockRecord& record)
{
    const bool started = m_dataFrames > 0;
    m_insertedFrames += record.insertedFrames;
    m_skippedFrames += record.skippedFrames;
    if (!record.isHeard()) {
        m_unheardFrames += record.dataFrames();
        return;
    }
    ++m_blocks;
    m_dataFrames += record.dataFrames();
    m_silenceFrames += record.silenceFrames;
    m_underruns += record.result == audioUtils::OutputDevice::Underrun ? 1 : 0;
    if (record.dataFrames() > 0) {
        m_paddedFrames += std::exchange(m_paddingInDoubt, 0);
    }
    if (m_dataFrames > 0) {
        m_paddingInDoubt += record.paddedFrames;
    }
    if (!started || record.dataFrames() == 0) {
        return; // there was nothing to be in time with
    }
    const double error = static_cast<double>(record.delta) / 1000;
    ++m_errors;
    m_sumOfErrors += error;
    m_sumOfSquares += error * error;
    m_worstError = std::abs(error) > std::abs(m_worstError) ? error : m_worstError;
}

double Statistics::meanError() const
{
    return m_errors > 0 ? m_sumOfErrors / static_cast<double>(m_errors) : 0;
}

double Statistics::rmsError() const
{
    return m_errors > 0 ? std::sqrt(m_sumOfSquares / static_cast<double>(m_errors)) : 0;
}

std::string Statistics::summary(bool isColored) const
{
    const auto lost = [isColored](std::uint64_t count, const char* what) {
        return inColor(std::to_string(count) + what,
                       isColored && count > 0 ? Color::Red : Color::None);
    };
    const std::string unheard =
        m_unheardFrames == 0 ? "" : ", " + lost(m_unheardFrames, " while the device was gone");
    const std::string allLost = lost(m_skippedFrames, " frames skipped") + ", " +
                                lost(m_paddedFrames, " missing") + ", " +
                                lost(m_underruns, " underruns") + unheard;
    std::array<char, 512> text{};
    std::snprintf(text.data(), text.size(),
                  "played        %.3f s in %lu blocks\n"
                  "silence       %.3f s until audio was due, %lu frames in gaps\n"
                  "lost          %s\n"
                  "timing error  mean %.1f us, rms %.1f us, worst %.1f us\n",
                  dataSeconds(), m_blocks, silenceSeconds(), m_insertedFrames, allLost.c_str(),
                  meanError(), rmsError(), m_worstError);
    return text.data();
}

} // namespace keldaPlay
